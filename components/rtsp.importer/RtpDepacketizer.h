// CRtpDepacketizer: turns the payloads of one RTP stream back into coded frames in the
// form of common/CodedMedia.h, one access unit (a picture, an audio frame) at a time.
//
// create() picks the depacketizer for a payload format (H.264 of RFC 6184, AAC as
// MPEG4-GENERIC of RFC 3640, L16 of RFC 3551) and describes the frames it will make: the
// codec, the clock, the private data and what else the format's parameters say. The
// depacketizer then takes the packets in sequence order (see CRtpReorderBuffer) and hands
// each finished unit to a sink, with the RTP timestamp it belongs to.
//
// A unit that lost a part (a packet missing before or inside it, a fragment without its
// start, a payload that does not parse, a unit larger than the depacketizer allows) is
// dropped whole and counted; nothing malformed reaches the sink. The sink sees a unit's
// bytes only during take(): they belong to the depacketizer, which reuses its buffer.
//
// Belongs to the thread that receives the stream; no lock.
#ifndef CM_COMPONENTS_RTSPIMPORTER_RTPDEPACKETIZER_H
#define CM_COMPONENTS_RTSPIMPORTER_RTPDEPACKETIZER_H

#include "common/CodedMedia.h"
#include "rtsp.importer/RtpPackets.h"
#include "rtsp.importer/SdpSession.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace cmcomponents {

struct CRtpAccessUnit {
    const unsigned char* data = nullptr;
    std::size_t size = 0;
    std::uint32_t timestamp = 0;
    bool key = false;
};

class CRtpDepacketizer {
public:
    class Sink {
    public:
        virtual ~Sink() = default;
        virtual void take(const CRtpAccessUnit& unit) = 0;
    };

    virtual ~CRtpDepacketizer() = default;

    // The depacketizer of the payload format, with the format of its frames described in
    // format; null with a line in why when the format is not one this library takes.
    static std::unique_ptr<CRtpDepacketizer> create(const CRtpPayloadFormat& payload,
                                                    CodedFormat& format, std::string& why);

    // Takes the next packet in sequence order; afterLoss says packets just before it were
    // lost.
    virtual void push(const CRtpPacket& packet, bool afterLoss, Sink& sink) = 0;
    // At the end of the stream: hands on a unit that is whole but was still waiting for the
    // packet that marks its end.
    virtual void flush(Sink& sink) = 0;
    // Fills in what the stream itself has said since format was described, where the
    // description had left it out (H.264 parameter sets sent only in band).
    virtual void completeFormat(CodedFormat& format) const { (void)format; }

    // Units dropped because a part of them was lost or malformed.
    unsigned long long dropped() const noexcept { return mDropped; }

protected:
    // Reads the payload format's parameters into format: false, with why, when they are
    // not usable.
    virtual bool describe(const CRtpPayloadFormat& payload, CodedFormat& format,
                          std::string& why) = 0;

    unsigned long long mDropped = 0;
};

}  // namespace cmcomponents

#endif
