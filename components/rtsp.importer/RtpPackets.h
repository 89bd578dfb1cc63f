// The packets of an RTP session as a receiver meets them: a view of a received data
// packet (RFC 3550's fixed header, contributing sources, header extension and padding
// taken apart, the payload left where it is), the one thing a receiver needs to read from
// the sender's control packets (did it say goodbye?), and the receiver report it sends
// back.
//
// Every length inside a packet is checked against the bytes received: a packet whose
// header, extension or padding claims more than there is does not parse.
//
// Plain values and functions; any thread. A view points into the caller's bytes and is
// valid as long as they are.
#ifndef CM_COMPONENTS_RTSPIMPORTER_RTPPACKETS_H
#define CM_COMPONENTS_RTSPIMPORTER_RTPPACKETS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cmcomponents {

struct CRtpPacket {
    const unsigned char* payload = nullptr;
    std::size_t payloadSize = 0;
    bool marker = false;
    unsigned int payloadType = 0;
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t ssrc = 0;

    // Takes the packet apart; false when it is not an RTP version 2 packet that fits its
    // bytes.
    bool parse(const unsigned char* bytes, std::size_t size);
};

// True when the compound control packet holds a BYE; a malformed one holds none.
bool rtcpHasBye(const unsigned char* bytes, std::size_t size);

// A compound control packet with an empty receiver report from ssrc and its CNAME (at
// most 255 bytes of it), as every compound packet must carry one.
std::vector<unsigned char> rtcpReceiverReport(std::uint32_t ssrc, const char* cname);

}  // namespace cmcomponents

#endif
