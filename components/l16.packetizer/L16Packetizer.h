// RL16Packetizer: turns 16-bit linear PCM audio into RTP L16 packets (RFC 3551): samples in
// network byte order, one packet per RTP frame, each within the configured MTU, the clock
// at the sample rate and the channel count as the encoding parameter of its
// RRTPDescription.
//
// Input: audio frames of "lpcm" (little-endian, interleaved; see common/WavFormat.h) with
// 2 bytes per sample; any other sample size fails the run with kResultNoPacketizer. Output:
// RRTPFrames stamped with the index of their first sample at the clock rate, the marker on
// the first packet.
//
// Settings, threads and failures: those of every packetizer (common/RTPPacketizer.h).
#ifndef CM_COMPONENTS_L16PACKETIZER_H
#define CM_COMPONENTS_L16PACKETIZER_H

#include "common/RTPPacketizer.h"

namespace cmcomponents {

class RL16Packetizer : public RRTPPacketizer {
public:
    RL16Packetizer() : RRTPPacketizer(ZR::fourcc("L16 ")) {}

private:
    int packetize() override;

    CPayloadLayout mLayout;
};

}  // namespace cmcomponents

#endif
