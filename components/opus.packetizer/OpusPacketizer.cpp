#include "opus.packetizer/OpusPacketizer.h"

using ZR::CM::RFrame;
using ZR::CM::RRTPDescription;

namespace cmcomponents {

int ROpusPacketizer::describe(const CodedFormat& format, const RFrame*,
                              RRTPDescription& description, std::string& why) {
    if (format.channels < 1 || format.channels > 2) {
        why = "Opus over RTP carries one or two channels, not " + std::to_string(format.channels);
        return ZR::CM::kResultNoPacketizer;
    }
    mStarted = false;
    description.mEncodingName = "opus";
    description.mClockRate = 48000;
    description.mEncodingParameters = 2;
    description.addAttribute(("a=fmtp:" + std::to_string(description.mPayloadType) +
                              " sprop-stereo=" + (format.channels == 2 ? "1" : "0"))
                                 .c_str());
    return 0;
}

int ROpusPacketizer::layOut(const RFrame& frame, CPayloadLayout& layout, std::string& why) {
    const unsigned int size = frame.getSize();
    if (size == 0) {
        return 0;
    }
    if (size > maxPayload()) {
        why = "an Opus packet of " + std::to_string(size) + " bytes is larger than a payload of " +
              std::to_string(maxPayload());
        return ZR::CM::kResultNoPacketizer;
    }
    layout.append(frame.getData(), size);
    layout.endPacket(!mStarted);
    mStarted = true;
    return 0;
}

}  // namespace cmcomponents
