#include "rtsp.importer/L16Depacketizer.h"

#include <cstring>

namespace cmcomponents {

bool CL16Depacketizer::describe(const CRtpPayloadFormat& payload, CodedFormat& format,
                                std::string& why) {
    if (payload.clockRate == 0) {
        why = "L16 without a sample rate";
        return false;
    }
    format.media = ZR::fourcc("audi");
    format.codec = ZR::fourcc("lpcm");
    format.sampleRate = payload.clockRate;
    format.channels = payload.channels ? payload.channels : 1;
    format.bytesPerSample = 2;
    format.timeBase = TimeBase{1, static_cast<int>(payload.clockRate)};
    mFrameSize = 2u * format.channels;
    return true;
}

void CL16Depacketizer::push(const CRtpPacket& packet, bool, Sink& sink) {
    const std::size_t size = packet.payloadSize;
    if (size == 0 || size % mFrameSize != 0) {
        ++mDropped;
        return;
    }
    mSamples.resize(size);
    for (std::size_t i = 0; i < size; i += 2) {
        std::uint16_t sample;
        std::memcpy(&sample, packet.payload + i, 2);
        sample = __builtin_bswap16(sample);
        std::memcpy(mSamples.data() + i, &sample, 2);
    }
    sink.take(CRtpAccessUnit{mSamples.data(), size, packet.timestamp, true});
}

}  // namespace cmcomponents
