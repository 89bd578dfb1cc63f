#include <zrbase/timecode.h>

#include <zrbase/string_with_format.h>

namespace zrbase {

timecode::timecode(mode_type mode) noexcept
    : m_label_count(0), m_fps(mode & 0xFF), m_mode(mode), m_extra(1) {}

timecode::timecode(mode_type mode, unsigned h, unsigned m, unsigned s, unsigned f,
                   unsigned extra) noexcept
    : m_label_count((h * 3600 + m * 60 + s) * (mode & 0xFF) + f),
      m_fps(mode & 0xFF),
      m_mode(mode),
      m_extra(extra) {}

bool timecode::is_drop() const noexcept {
    return m_mode == mode_29_97_drop || m_mode == mode_59_94_drop;
}

unsigned timecode::drop_per_minute() const noexcept { return m_mode == mode_59_94_drop ? 4 : 2; }

unsigned timecode::total_frames() const noexcept {
    if (!is_drop()) {
        return m_label_count;
    }
    const unsigned per_minute = m_fps * 60;
    const unsigned hours = m_label_count / (m_fps * 3600);
    const unsigned minutes = (m_label_count / per_minute) % 60;
    const unsigned total_minutes = hours * 60 + minutes;
    return m_label_count - (total_minutes - total_minutes / 10) * drop_per_minute();
}

// The minute count comes from the real frame count over the nominal frames per minute:
// a simplification of the ten-minute drop cycle that the labels rely on.
void timecode::total_frames(unsigned n) noexcept {
    if (!is_drop()) {
        m_label_count = n;
        return;
    }
    const unsigned minutes = n / (m_fps * 60);
    m_label_count = n + (minutes - minutes / 10) * drop_per_minute();
}

unsigned timecode::dropped_boundaries(unsigned n) const noexcept {
    const unsigned per_minute = m_fps * 60;
    const unsigned crossed = (m_label_count % per_minute + n) / per_minute;
    const unsigned minute = (m_label_count / per_minute) % 60;
    return crossed - (minute % 10 + crossed) / 10;
}

void timecode::increment(unsigned n) noexcept {
    if (is_drop()) {
        m_label_count += n + dropped_boundaries(n) * drop_per_minute();
        return;
    }
    if (m_mode == mode_23_976 && m_fps != 0 && (m_label_count / m_fps) % 60 == 0 &&
        m_label_count % m_fps == 0) {
        // On a whole minute the 23.976 labelling skips one or two labels, one fewer on
        // every fifteenth minute.
        const unsigned minute = (m_label_count / (m_fps * 60)) % 60;
        unsigned step = n + (minute % 2 ? 2 : 1);
        if (minute % 15 == 0) {
            step -= 1;
        }
        m_label_count += step;
        return;
    }
    m_label_count += n;
}

// Going backwards uses the forward boundary count on purpose: labels stepped back this way
// match the ones the engine has always produced.
void timecode::decrement(unsigned n) noexcept {
    if (is_drop()) {
        m_label_count -= n + dropped_boundaries(n) * drop_per_minute();
        return;
    }
    m_label_count -= n;
}

timecode timecode_with_timestamp(timecode::mode_type mode, timestamp const& ts, unsigned extra) {
    timecode tc(mode);
    const unsigned long long fps = tc.fps();
    const unsigned long long v = ts.value();
    const unsigned long long s = ts.scale();
    unsigned frames = 0;
    if (s != 0) {
        frames = static_cast<unsigned>(fps * (v / s) + ((v % s) * fps) / s);
    }
    tc.total_frames(frames);
    tc.set_extra(extra);
    return tc;
}

namespace {

timecode::mode_type mode_for_rate(double rate) {
    const double hundredths = (rate + 0.005) * 100.0;
    if (!(hundredths >= 0.0 && hundredths < 4294967296.0)) {
        return timecode::mode_none;
    }
    switch (static_cast<unsigned>(hundredths)) {
        case 6000:
            return timecode::mode_60;
        case 5994:
            return timecode::mode_59_94_drop;
        case 5000:
            return timecode::mode_50;
        case 500:
        case 625:
        case 1250:
        case 2500:
            return timecode::mode_25;
        case 400:
        case 600:
        case 800:
        case 1200:
        case 2400:
            return timecode::mode_24;
        case 1199:
        case 2398:
            return timecode::mode_23_976;
        case 300:
        case 1000:
        case 1500:
        case 3000:
            return timecode::mode_30;
        case 2997:
            return timecode::mode_29_97_drop;
        default:
            return timecode::mode_none;
    }
}

}  // namespace

timecode timecode_with_framerate(double rate, timestamp const& ts, unsigned extra) {
    return timecode_with_timestamp(mode_for_rate(rate), ts, extra);
}

timecode timecode_with_quicktime_tmcd(timecode::mode_type mode, unsigned packed, unsigned extra) {
    return timecode(mode, packed >> 24, (packed >> 16) & 255, (packed >> 8) & 255, packed & 255,
                    extra);
}

std::string string_with_timecode(timecode const& tc, bool flag) {
    if (tc.mode() == timecode::mode_none) {
        return std::string();
    }
    const bool drop =
        tc.mode() == timecode::mode_29_97_drop || tc.mode() == timecode::mode_59_94_drop;
    const char separator = drop ? (flag ? ';' : ',') : (flag ? ':' : '.');
    const unsigned fps = tc.fps();
    const unsigned L = tc.label_count();
    unsigned hours = 0, minutes = 0, seconds = 0, frames = 0;
    if (fps != 0) {
        hours = L / (fps * 3600);
        minutes = (L / (fps * 60)) % 60;
        seconds = (L / fps) % 60;
        frames = L % fps;
    }
    return string_with_format("%02u:%02u:%02u%c%02u", hours, minutes, seconds, separator, frames);
}

}  // namespace zrbase
