// The RTCP packet that goes beside an RTP stream (RFC 3550): a sender report, which ties
// the stream's RTP timestamps to wall-clock time and counts what has been sent, followed by
// the SDES chunk with the sender's CNAME that every RTCP packet must carry. A receiver uses
// the reports of several streams to play them in sync.
#ifndef CM_COMPONENTS_SENDERREPORT_H
#define CM_COMPONENTS_SENDERREPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace cmcomponents {

struct SenderReport {
    std::uint32_t ssrc = 0;
    double wallClock = 0;  // seconds since 1970, the time the RTP timestamp stands for
    std::uint32_t rtpTimestamp = 0;
    std::uint32_t packets = 0;  // RTP packets sent so far
    std::uint32_t octets = 0;   // their payload bytes
};

// Writes the compound packet (the report, then the CNAME of at most 255 bytes) to out,
// which has room for capacity bytes: its length, or 0 when it does not fit.
std::size_t writeSenderReport(const SenderReport& report, const std::string& cname,
                              unsigned char* out, std::size_t capacity);

}  // namespace cmcomponents

#endif
