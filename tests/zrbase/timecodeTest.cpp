#include <zrbase/timecode.h>

#include <gtest/gtest.h>

using zrbase::string_with_timecode;
using zrbase::timecode;
using zrbase::timestamp;

namespace {

unsigned labels(unsigned fps, unsigned h, unsigned m, unsigned s, unsigned f) {
    return (h * 3600 + m * 60 + s) * fps + f;
}

std::string text(const timecode& tc) { return string_with_timecode(tc, true); }

}  // namespace

TEST(TimecodeTest, DropFrameLabelsSkipTwoPerMinuteExceptEveryTenth) {
    const timecode oneMinute(timecode::mode_29_97_drop, 0, 1, 0, 0, 1);
    EXPECT_EQ(oneMinute.label_count(), 1800u);
    EXPECT_EQ(oneMinute.total_frames(), 1798u);
    EXPECT_EQ(timecode(timecode::mode_29_97_drop, 0, 10, 0, 0, 1).total_frames(), 17982u);
    EXPECT_EQ(timecode(timecode::mode_59_94_drop, 0, 1, 0, 0, 1).total_frames(), 3600u - 4);

    timecode tc(timecode::mode_29_97_drop);
    tc.total_frames(1800);
    EXPECT_EQ(tc.label_count(), 1802u);
    EXPECT_EQ(tc.extra(), 1u);
    tc.total_frames(1799);
    EXPECT_EQ(tc.label_count(), 1799u);  // the minute is taken from the frame count itself
}

TEST(TimecodeTest, IncrementCrossesMinuteAndHourBoundariesInEveryMode) {
    // Drop frame: onto minute 61 two labels are skipped, onto a tenth minute none.
    timecode drop(timecode::mode_29_97_drop, 1, 0, 59, 29, 1);
    drop.increment(1);
    EXPECT_EQ(text(drop), "01:01:00;02");
    timecode tenth(timecode::mode_29_97_drop, 0, 9, 59, 29, 1);
    tenth.increment(1);
    EXPECT_EQ(text(tenth), "00:10:00;00");
    timecode hour59(timecode::mode_59_94_drop, 0, 59, 59, 59, 1);
    hour59.increment(1);
    EXPECT_EQ(text(hour59), "01:00:00;00");
    timecode minute59(timecode::mode_59_94_drop, 0, 0, 59, 59, 1);
    minute59.increment(1);
    EXPECT_EQ(text(minute59), "00:01:00;04");
    timecode far(timecode::mode_29_97_drop, 0, 0, 0, 0, 1);
    far.increment(1800 * 3);  // three boundaries from the start of minute 0
    EXPECT_EQ(far.label_count(), 5400u + 3 * 2);

    // Plain modes simply count labels, hours included and not wrapped at 24.
    for (const unsigned mode : {timecode::mode_24, timecode::mode_25, timecode::mode_30,
                                timecode::mode_50, timecode::mode_60}) {
        const unsigned fps = mode;
        timecode tc(mode, 23, 59, 59, fps - 1, 1);
        tc.increment(1);
        EXPECT_EQ(text(tc), "24:00:00:00") << mode;
        tc.decrement(1);
        EXPECT_EQ(tc.label_count(), labels(fps, 23, 59, 59, fps - 1)) << mode;
    }

    // 23.976: on a whole minute one label more is skipped on odd minutes, one fewer on
    // every fifteenth minute.
    struct Case {
        unsigned minute;
        unsigned step;
    } cases[] = {{0, 1}, {1, 3}, {2, 2}, {15, 2}, {30, 1}, {59, 3}};
    for (const Case& c : cases) {
        timecode tc(timecode::mode_23_976, 0, c.minute, 0, 0, 1);
        const unsigned before = tc.label_count();
        tc.increment(1);
        EXPECT_EQ(tc.label_count() - before, c.step) << "minute " << c.minute;
    }
    timecode hour(timecode::mode_23_976, 1, 0, 0, 0, 1);
    hour.increment(5);  // minute 0 of hour 1 behaves like minute 0
    EXPECT_EQ(hour.label_count(), labels(24, 1, 0, 0, 5));
    timecode inside(timecode::mode_23_976, 0, 1, 0, 1, 1);
    inside.increment(5);  // not on a whole minute: plain
    EXPECT_EQ(inside.label_count(), labels(24, 0, 1, 0, 6));
}

TEST(TimecodeTest, DecrementUsesTheForwardBoundaryCount) {
    // From 01:01:00;02 going back one frame counts no boundary ahead, so it lands on a
    // label that drop frame never shows.
    timecode tc(timecode::mode_29_97_drop, 1, 1, 0, 2, 1);
    tc.decrement(1);
    EXPECT_EQ(text(tc), "01:01:00;01");
    // From the last label of a minute the forward step crosses a boundary, so going back
    // skips two labels as well.
    timecode end(timecode::mode_29_97_drop, 0, 0, 59, 29, 1);
    end.decrement(1);
    EXPECT_EQ(end.label_count(), 1799u - 1 - 2);
    // 23.976 going back is plain.
    timecode special(timecode::mode_23_976, 0, 1, 0, 0, 1);
    special.decrement(1);
    EXPECT_EQ(special.label_count(), labels(24, 0, 0, 59, 23));
}

TEST(TimecodeTest, BuiltFromTimestampsRatesAndTmcdSamples) {
    EXPECT_EQ(text(zrbase::timecode_with_timestamp(timecode::mode_25, timestamp(3600, 1), 9)),
              "01:00:00:00");
    const timecode drop = zrbase::timecode_with_timestamp(timecode::mode_29_97_drop,
                                                          timestamp(60, 1), 4);
    EXPECT_EQ(drop.label_count(), 1802u);
    EXPECT_EQ(drop.extra(), 4u);
    // Exact integer arithmetic on value and scale: 1001/30000 s at 30 fps is one frame.
    EXPECT_EQ(
        zrbase::timecode_with_timestamp(timecode::mode_30, timestamp(1001, 30000), 1).label_count(),
        1u);
    EXPECT_EQ(zrbase::timecode_with_timestamp(timecode::mode_30, timestamp(5, 0), 1).label_count(),
              0u);  // a zero scale counts no frames

    struct Rate {
        double rate;
        unsigned mode;
    } rates[] = {{29.97, 0x701E}, {23.976, 0x7018}, {59.94, 0x703C}, {12.5, 25},
                 {15, 30},        {7, 1},           {60, 60},         {50, 50},
                 {24, 24},        {11.99, 0x7018},  {-5, 1},          {1e30, 1}};
    for (const Rate& r : rates) {
        EXPECT_EQ(zrbase::timecode_with_framerate(r.rate, timestamp(0, 1), 1).mode(), r.mode)
            << r.rate;
    }
    EXPECT_EQ(zrbase::timecode_with_framerate(25.0, timestamp(2, 1), 3).label_count(), 50u);

    const timecode tmcd = zrbase::timecode_with_quicktime_tmcd(timecode::mode_25, 0x01020304, 8);
    EXPECT_EQ(tmcd.label_count(), labels(25, 1, 2, 3, 4));
    EXPECT_EQ(tmcd.extra(), 8u);
    EXPECT_EQ(tmcd.fps(), 25u);
}

TEST(TimecodeTest, TextFormUsesTheSeparatorOfTheMode) {
    timecode pal(timecode::mode_25);
    pal.total_frames(90061);
    EXPECT_EQ(string_with_timecode(pal, true), "01:00:02:11");
    EXPECT_EQ(string_with_timecode(pal, false), "01:00:02.11");
    const timecode drop(timecode::mode_59_94_drop, 2, 3, 4, 5, 1);
    EXPECT_EQ(string_with_timecode(drop, true), "02:03:04;05");
    EXPECT_EQ(string_with_timecode(drop, false), "02:03:04,05");
    EXPECT_EQ(string_with_timecode(timecode(timecode::mode_none), true), "");
    EXPECT_EQ(string_with_timecode(timecode(0x7000), true), "00:00:00:00");  // fps 0
    EXPECT_EQ(string_with_timecode(timecode(timecode::mode_24, 100, 0, 0, 0, 1), true),
              "100:00:00:00");
}
