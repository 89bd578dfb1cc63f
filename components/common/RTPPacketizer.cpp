#include "common/RTPPacketizer.h"

#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include <cmath>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RDescription;
using ZR::CM::RFrame;
using ZR::CM::RRTPDescription;
using ZR::CM::RRTPFrame;
using ZR::CM::RRTPPacket;

namespace cmcomponents {

void CPayloadLayout::endPacket(bool marker) {
    const std::uint32_t offset =
        mPackets.empty() ? 0 : mPackets.back().offset + mPackets.back().length;
    mPackets.push_back(Packet{offset, static_cast<std::uint32_t>(mBytes.size()) - offset, marker});
}

void CPayloadLayout::markLast() noexcept {
    if (!mPackets.empty()) {
        mPackets.back().marker = true;
    }
}

int RRTPPacketizer::configure(ZR::CM::RComponentConfiguration& configuration) {
    mMTU = static_cast<unsigned int>(configuration.getInt("mtu", 1400, 256, 9000));
    mPayloadType = configuration.getInt("payload-type", -1, -1, 127);
    mPort = static_cast<std::uint16_t>(configuration.getInt("port", 0, 0, 65535));
    mSSRC = static_cast<std::uint32_t>(configuration.getFloat64("ssrc", 0, 0, 4294967295.0));
    mRun.setPhase(CComponentStatus::kConfigured);
    return 0;
}

int RRTPPacketizer::runloop(zrbase::object_refcount*) {
    mRun.clear();
    mRun.setPhase(CComponentStatus::kWorking);
    mSequence = 0;
    const int result = getReaderCount() == 1 && getWriterCount() == 1
                           ? packetize()
                           : fail(ZR::CM::kResultComponentInitFailed,
                                  "a packetizer needs one input and one output queue");
    if (result != 0) {
        drainInput();
    }
    for (int i = 0; i < getWriterCount(); ++i) {
        getWriter(i)->end();
    }
    if (result == 0) {
        mRun.complete();
    }
    return result;
}

void RRTPPacketizer::drainInput() {
    for (int i = 0; i < getReaderCount(); ++i) {
        while (getReader(i)->nextNode()) {
        }
    }
}

int RRTPPacketizer::fail(int result, const std::string& why) {
    mRun.fail(result, why);
    return result;
}

RPtr<RRTPDescription> RRTPPacketizer::newDescription(const RDescription* media) const {
    RPtr<RRTPDescription> description(new RRTPDescription(media));
    if (mPayloadType < 0) {
        description->setDynamicPayload();
    } else {
        description->mPayloadType = static_cast<std::int8_t>(mPayloadType);
    }
    description->mPort = mPort;
    description->mSSRC = mSSRC;
    return description;
}

void RRTPPacketizer::publish(const RPtr<RRTPDescription>& description) {
    mClockRate = description->mClockRate != 0 ? description->mClockRate : 90000;
    getWriter(0)->setDescriptionP(description.addr());
}

void RRTPPacketizer::emit(const RFrame& media, double start, double sendTime,
                          const CPayloadLayout& layout) {
    // The media frame's times, number and parameters without its bytes: the RTP frame
    // copies those, and takes the payloads as its bytes.
    ZR::CM::RTextFrame times(&media, mFormat, 0, nullptr, ZR::ConstructionCopy);
    RPtr<RRTPFrame> frame(RRTPFrame::createWithFrame(&times));
    const std::vector<unsigned char>& bytes = layout.bytes();
    frame->setData(static_cast<unsigned int>(bytes.size()),
                   const_cast<unsigned char*>(bytes.data()), ZR::ConstructionCopy);
    // pack() truncates clock rate times start time toward zero: half a tick beyond the
    // nearest tick, away from zero, makes it write that tick, negative ones (which wrap) too.
    const long long ticks = std::isfinite(start) ? std::llround(start * mClockRate) : 0;
    frame->setStartTime((static_cast<double>(ticks) + (ticks < 0 ? -0.5 : 0.5)) / mClockRate);
    frame->setAuxTime(sendTime);
    for (const CPayloadLayout::Packet& slice : layout.packets()) {
        RRTPPacket* packet = RRTPPacket::createWithData(slice.offset, slice.length);
        packet->mSequenceNumber = mSequence++;
        packet->mMarker = slice.marker ? 1 : 0;
        frame->addPacket(packet);
    }
    getWriter(0)->put(frame);
    mRun.addFrame(bytes.size());
}

int RCodedPacketizer::packetize() {
    ZR::CM::RQFrameReader* reader = getReader(0);
    // A writer publishes its description before its first frame, so once a frame or the
    // end has arrived, the description is there or never comes.
    RPtr<const RFrame> frame = reader->nextSharedFrame();
    const RPtr<const ZR::CM::RQDescription> queued = reader->getQueue()->getDescription();
    const auto* media = dynamic_cast<const RDescription*>(queued.addr());
    if (!media) {
        return frame ? fail(ZR::CM::kResultNoValidTracks, "frames came without a description") : 0;
    }
    CodedFormat format;
    if (!format.setFromDescription(*media) || format.codec != mCodec) {
        return fail(ZR::CM::kResultNoPacketizer, "this packetizer carries '" + fourccText(mCodec) +
                                                     "', not '" + fourccText(formatOf(*media)) +
                                                     "'");
    }
    const RPtr<RRTPDescription> description = newDescription(media);
    std::string why;
    int result = describe(format, frame.addr(), *description, why);
    if (result != 0) {
        return fail(result, why);
    }
    publish(description);
    for (; frame; frame = reader->nextSharedFrame()) {
        mLayout.clear();
        result = layOut(*frame, mLayout, why);
        if (result != 0) {
            return fail(result, "frame " + std::to_string(frame->getFrameNumber()) + ": " + why);
        }
        if (!mLayout.empty()) {
            emit(*frame, frame->getStartTime(), frame->getAuxTime(), mLayout);
        }
    }
    return 0;
}

}  // namespace cmcomponents
