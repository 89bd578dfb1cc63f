// The stream forms read from ZR::CData. The first byte picks the type, the rest is the
// stream. Whatever reads back is written out again and read a second time, so the writers
// see values the readers produced from hostile bytes.
#include <cm/CMComponentConfiguration.h>
#include <cm/CMComponentInfo.h>
#include <cm/CMComponentStatus.h>
#include <cm/CMFormatObjectMap.h>
#include <cm/CMTrackInfo.h>
#include <zr/CData.h>
#include <zr/RPtr.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

using namespace ZR;
using namespace ZR::CM;

// Whatever was read must write out in a form that reads back to the same value: writing
// the copy gives the very bytes the first write gave.
template <typename T>
void roundTrip(CData& in, T& value, T& again) {
    in >> value;
    CData out;
    out << value;
    out.rewind();
    out >> again;
    CData second;
    second << again;
    if (out.failed() || second.getSize() != out.getSize() ||
        std::memcmp(second.getData(), out.getData(), static_cast<std::size_t>(out.getSize())) !=
            0) {
        std::abort();
    }
}

template <typename T>
void roundTripRefCounted(CData& in) {
    RPtr<T> value(new T);
    RPtr<T> again(new T);
    roundTrip(in, *value, *again);
}

template <typename T>
void roundTripPlain(CData& in) {
    T value;
    T again;
    roundTrip(in, value, again);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > (1 << 20)) {
        return 0;
    }
    CData in(data + 1, static_cast<int>(size - 1));
    switch (data[0] % 12) {
        case 0:
            roundTripRefCounted<RMovieInfo>(in);
            break;
        case 1:
            roundTripRefCounted<RVideoTrackInfo>(in);
            break;
        case 2:
            roundTripRefCounted<RAudioTrackInfo>(in);
            break;
        case 3:
            roundTripRefCounted<RHintTrackInfo>(in);
            break;
        case 4:
            roundTripRefCounted<RImporterInfo>(in);
            break;
        case 5:
            roundTripRefCounted<RFilterInfo>(in);
            break;
        case 6:
            roundTripRefCounted<RComponentInfoMatch>(in);
            break;
        case 7:
            roundTripRefCounted<RFormatObjectMap>(in);
            break;
        case 8:
            roundTripPlain<ComponentFormatItem>(in);
            break;
        case 9:
            roundTripRefCounted<RComponentConfiguration>(in);
            break;
        case 10:
            roundTripRefCounted<RExporterConfiguration>(in);
            break;
        default:
            roundTripPlain<CComponentStatus>(in);
            break;
    }
    return 0;
}
