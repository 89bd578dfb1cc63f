// opus.packetizer: carries Opus ("Opus", CodedMedia.h) in RTP as RFC 7587 describes it.
//
// Each Opus packet (one input frame) goes out whole in one RTP packet, which is one RTP
// frame; the first packet of the stream carries the marker (the start of a talkspurt).
// The clock runs at 48 kHz whatever the input's rate, as it always does for Opus, and the
// timestamp is the frame's presentation time on it. Empty frames are not sent.
//
// Description: "opus/48000/2" (the name always says two channels) with
// "a=fmtp:PT sprop-stereo=1" for stereo input, "sprop-stereo=0" for mono.
//
// Failures: more than two channels (RTP carries Opus's mono and stereo forms only), or a
// packet larger than one payload, kResultNoPacketizer.
#ifndef CM_COMPONENTS_OPUSPACKETIZER_H
#define CM_COMPONENTS_OPUSPACKETIZER_H

#include "common/RTPPacketizer.h"

namespace cmcomponents {

class ROpusPacketizer : public RCodedPacketizer {
public:
    ROpusPacketizer() : RCodedPacketizer(ZR::fourcc("Opus"), ZR::fourcc("opus")) {}

protected:
    int describe(const CodedFormat& format, const ZR::CM::RFrame* first,
                 ZR::CM::RRTPDescription& description, std::string& why) override;
    int layOut(const ZR::CM::RFrame& frame, CPayloadLayout& layout, std::string& why) override;

private:
    bool mStarted = false;  // a packet has been laid out
};

}  // namespace cmcomponents

#endif
