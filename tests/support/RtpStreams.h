// RTP packets as senders make them, for the tests of the receiving side: the fixed header,
// the H.264 payload forms of RFC 6184 (STAP-A, FU-A), AAC in MPEG4-GENERIC's AAC-hbr mode
// and the '$' framing of media interleaved on an RTSP connection.
#ifndef CM_TESTS_SUPPORT_RTPSTREAMS_H
#define CM_TESTS_SUPPORT_RTPSTREAMS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cmtest {

using Bytes = std::vector<unsigned char>;

// A version 2 packet without contributing sources, extension or padding.
Bytes rtpPacket(std::uint16_t sequence, std::uint32_t timestamp, bool marker,
                unsigned int payloadType, const Bytes& payload);
// The NAL units (header byte first) in Annex B form, each after a four-byte start code.
Bytes annexB(const std::vector<Bytes>& nals);
// A STAP-A payload aggregating the NAL units.
Bytes stapA(const std::vector<Bytes>& nals);
// The FU-A payloads of a NAL unit (header byte first), each with at most `size` bytes of
// it.
std::vector<Bytes> fuA(const Bytes& nal, std::size_t size);
// An AAC-hbr payload (13-bit sizes, 3-bit indices) carrying the access units.
Bytes aacHbr(const std::vector<Bytes>& units);
// The packet framed for channel of an RTSP connection.
std::string interleaved(int channel, const Bytes& packet);

}  // namespace cmtest

#endif
