#include "l16.packetizer/L16Packetizer.h"

#include <cm/CMQueueRW.h>

#include <utility>
#include <vector>

namespace cmcomponents {

int RL16Packetizer::packetize() {
    ZR::CM::RQSampleReader samples(getReader(0));
    const ZR::RPtr<const ZR::CM::RAudioDescription> audio = samples.getDescription();
    if (!audio || audio->type() != ZR::fourcc("audi") || audio->mBytesPerSample != 2 ||
        audio->mChannels == 0 || audio->mSampleRate < 1) {
        return fail(ZR::CM::kResultNoPacketizer, "L16 carries 16-bit audio only");
    }
    const unsigned int channels = audio->mChannels;
    const double rate = audio->mSampleRate;
    const ZR::RPtr<ZR::CM::RRTPDescription> rtp = newDescription(audio.addr());
    rtp->mEncodingName = "L16";
    rtp->mClockRate = static_cast<std::uint32_t>(rate);
    rtp->mEncodingParameters = channels;
    publish(rtp);

    const unsigned int frameBytes = 2 * channels;
    const unsigned int framesPerPacket = maxPayload() / frameBytes;
    std::vector<unsigned char> payload(framesPerPacket * frameBytes);
    const ZR::CM::RAudioFrame noMedia(0u);  // the packets carry no frame's times
    unsigned long long sampleFrame = 0;
    for (;;) {
        checkpoint();
        const unsigned int got = samples.readSamples(payload.data(), framesPerPacket * channels);
        const unsigned int bytes = got * 2 / frameBytes * frameBytes;  // whole sample frames
        if (bytes == 0) {
            return 0;
        }
        for (unsigned int i = 0; i + 1 < bytes; i += 2) {
            std::swap(payload[i], payload[i + 1]);  // to network byte order
        }
        mLayout.clear();
        mLayout.append(payload.data(), bytes);
        mLayout.endPacket(sampleFrame == 0);
        const double start = static_cast<double>(sampleFrame) / rate;
        emit(noMedia, start, start, mLayout);
        sampleFrame += bytes / frameBytes;
    }
}

}  // namespace cmcomponents
