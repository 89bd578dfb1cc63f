#include "l16.packetizer/L16Packetizer.h"

#include "common/WavFormat.h"

#include <cm/CMQueueRW.h>
#include <cm/CMRTP.h>

#include <vector>

namespace cmcomponents {

int RL16Packetizer::configure(ZR::CM::RComponentConfiguration& configuration) {
    mMTU = static_cast<unsigned int>(configuration.getInt("mtu", 1400, 256, 9000));
    mPort = static_cast<std::uint16_t>(configuration.getInt("port", 0, 0, 65535));
    mSSRC = static_cast<std::uint32_t>(configuration.getFloat64("ssrc", 0, 0, 4294967295.0));
    mRun.setPhase(ZR::CM::CComponentStatus::kConfigured);
    return 0;
}

int RL16Packetizer::runloop(zrbase::object_refcount*) {
    mRun.setPhase(ZR::CM::CComponentStatus::kWorking);
    const int result = packetize();
    if (result != 0) {
        drainInput();
    }
    if (ZR::CM::RQFrameWriter* writer = getWriter(0)) {
        writer->end();
    }
    if (result == 0) {
        mRun.complete();
    }
    return result;
}

void RL16Packetizer::drainInput() {
    if (ZR::CM::RQFrameReader* reader = getReader(0)) {
        while (reader->nextNode()) {
        }
    }
}

int RL16Packetizer::packetize() {
    ZR::CM::RQFrameReader* reader = getReader(0);
    ZR::CM::RQFrameWriter* writer = getWriter(0);
    if (getReaderCount() != 1 || getWriterCount() != 1) {
        mRun.fail(ZR::CM::kResultNoPacketizer, "needs one input and one output");
        return ZR::CM::kResultNoPacketizer;
    }
    ZR::CM::RQSampleReader samples(reader);
    const ZR::RPtr<const ZR::CM::RAudioDescription> audio = samples.getDescription();
    if (!audio || audio->type() != ZR::fourcc("audi") || audio->mBytesPerSample != 2 ||
        audio->mChannels == 0 || audio->mSampleRate < 1) {
        mRun.fail(ZR::CM::kResultNoPacketizer, "L16 carries 16-bit audio only");
        return ZR::CM::kResultNoPacketizer;
    }
    const unsigned int channels = audio->mChannels;
    const double rate = audio->mSampleRate;
    ZR::RPtr<ZR::CM::RRTPDescription> rtp(new ZR::CM::RRTPDescription(audio.addr()));
    rtp->setDynamicPayload();
    rtp->mEncodingName = "L16";
    rtp->mClockRate = static_cast<std::uint32_t>(rate);
    rtp->mEncodingParameters = channels;
    rtp->mSSRC = mSSRC;
    rtp->mPort = mPort;
    writer->setDescriptionP(rtp.addr());

    const unsigned int frameBytes = 2 * channels;
    const unsigned int framesPerPacket = (mMTU - kOverhead) / frameBytes;
    std::vector<unsigned char> payload(framesPerPacket * frameBytes);
    unsigned long long sampleFrame = 0;
    std::uint16_t sequence = 0;
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
        ZR::RPtr<ZR::CM::RFrame> audioFrame(ZR::CM::RAudioFrame::createWithData(
            kLinearPCM, bytes, payload.data(), 0, 0, ZR::ConstructionCopy));
        // Half a sample into the sample's slot, so that the timestamp (the start time at
        // the clock rate, truncated) is the sample index exactly.
        audioFrame->setStartTime((sampleFrame + 0.5) / rate);
        ZR::RPtr<ZR::CM::RRTPFrame> frame(ZR::CM::RRTPFrame::createWithFrame(audioFrame.addr()));
        frame->setDataFormat(ZR::fourcc("L16 "));
        ZR::RPtr<ZR::CM::RRTPPacket> packet(ZR::CM::RRTPPacket::createWithData(0, bytes));
        packet->mSequenceNumber = sequence;
        packet->mMarker = sequence == 0 ? 1 : 0;
        frame->addPacket(packet.addr());
        writer->put(frame);
        mRun.addFrame(bytes);
        ++sequence;
        sampleFrame += bytes / frameBytes;
    }
}

}  // namespace cmcomponents
