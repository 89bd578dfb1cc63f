// zrbase::timecode: hours:minutes:seconds:frames labels in the frame-rate modes of the
// engine, with the drop-frame labelling of 29.97 and 59.94 fps and the minute-skipping
// labelling of 23.976 fps. A timecode is a plain value; all arithmetic is unsigned 32-bit
// and wraps as such.
#ifndef ZRBASE_TIMECODE_H
#define ZRBASE_TIMECODE_H

#include <zrbase/timestamp.h>

#include <string>

namespace zrbase {

class timecode {
public:
    // The low byte is the nominal frames per second; 0x70 above it marks the drop-frame and
    // special modes.
    using mode_type = unsigned int;
    static constexpr mode_type mode_none = 1;
    static constexpr mode_type mode_24 = 24;
    static constexpr mode_type mode_25 = 25;
    static constexpr mode_type mode_30 = 30;
    static constexpr mode_type mode_50 = 50;
    static constexpr mode_type mode_60 = 60;
    static constexpr mode_type mode_23_976 = 0x7018;
    static constexpr mode_type mode_29_97_drop = 0x701E;
    static constexpr mode_type mode_59_94_drop = 0x703C;

    explicit timecode(mode_type mode = mode_none) noexcept;
    timecode(mode_type mode, unsigned h, unsigned m, unsigned s, unsigned f,
             unsigned extra) noexcept;

    // Real frames that the label count stands for, and the reverse.
    unsigned total_frames() const noexcept;
    void total_frames(unsigned n) noexcept;

    // Move the label by n real frames.
    void increment(unsigned n) noexcept;
    void decrement(unsigned n) noexcept;

    unsigned label_count() const noexcept { return m_label_count; }
    unsigned fps() const noexcept { return m_fps; }
    mode_type mode() const noexcept { return m_mode; }
    unsigned extra() const noexcept { return m_extra; }
    void set_extra(unsigned extra) noexcept { m_extra = extra; }

private:
    bool is_drop() const noexcept;
    unsigned drop_per_minute() const noexcept;
    // Minute boundaries crossed moving n frames on from the label, less those that land on
    // a tenth minute (where no labels are dropped).
    unsigned dropped_boundaries(unsigned n) const noexcept;

    unsigned m_label_count;  // nominal labels since 00:00:00:00
    unsigned m_fps;          // low byte of the mode
    mode_type m_mode;
    unsigned m_extra;  // carried for the caller, never interpreted
};

timecode timecode_with_timestamp(timecode::mode_type mode, timestamp const& ts, unsigned extra);
timecode timecode_with_framerate(double rate, timestamp const& ts, unsigned extra);
// Hours, minutes, seconds and frames packed in the four bytes of a QuickTime tmcd sample,
// most significant first.
timecode timecode_with_quicktime_tmcd(timecode::mode_type mode, unsigned packed, unsigned extra);
// "HH:MM:SS:FF"; the frames separator is ';' or ',' in the drop modes and ':' or '.'
// otherwise, by `flag`. Empty for mode_none.
std::string string_with_timecode(timecode const& tc, bool flag);

}  // namespace zrbase

#endif
