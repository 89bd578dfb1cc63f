// Timecode arithmetic on arbitrary modes, labels and frame counts: construction from
// labels, timestamps, frame rates and packed tmcd samples, moves both ways and printing.
#include "FuzzInput.h"

#include <zrbase/timecode.h>
#include <zrbase/timestamp.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const auto mode = input.take<unsigned>();
    const unsigned h = input.take<unsigned>(), m = input.take<unsigned>(),
                   s = input.take<unsigned>(), f = input.take<unsigned>();
    zrbase::timecode tc(mode, h, m, s, f, input.take<unsigned>());
    tc.increment(input.take<unsigned>());
    tc.decrement(input.take<unsigned>());
    const unsigned total = tc.total_frames();
    tc.total_frames(total ^ input.take<unsigned>());
    string_with_timecode(tc, input.take<std::uint8_t>() & 1);

    const zrbase::timestamp ts(input.take<unsigned long long>(), input.take<unsigned long long>());
    string_with_timecode(zrbase::timecode_with_timestamp(mode, ts, 0), false);
    string_with_timecode(zrbase::timecode_with_framerate(input.take<double>(), ts, 0), true);
    string_with_timecode(zrbase::timecode_with_quicktime_tmcd(mode, input.take<unsigned>(), 0),
                         false);
    return 0;
}
