// RL16Packetizer: turns 16-bit linear PCM audio into RTP L16 packets (RFC 3551): samples in
// network byte order, one packet per RTP frame, each within the configured MTU, a dynamic
// payload type, the clock at the sample rate and the channel count as the encoding
// parameter of its RRTPDescription.
//
// Input: audio frames of "lpcm" (little-endian, interleaved; see common/WavFormat.h) with
// 2 bytes per sample; any other sample size fails the run with kResultNoPacketizer. Output:
// RRTPFrames whose start times make exact RTP timestamps (the sample index at the clock
// rate), with sequence numbers that go up by one and the marker on the first packet.
//
// Settings (configure()): "mtu" the largest IP packet, 256 to 9000, default 1400; "port"
// the port its SDP "m=" line names, default 0; "ssrc" the stream's SSRC, default 0.
//
// Threads: configure() on the application's thread before start(); runloop() on the
// component's thread; getStatus() from any thread.
#ifndef CM_COMPONENTS_L16PACKETIZER_H
#define CM_COMPONENTS_L16PACKETIZER_H

#include "common/RunStatus.h"

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>

#include <cstdint>

namespace cmcomponents {

class RL16Packetizer : public ZR::CM::CMMultipleQueueComponent, public ZR::CM::CConfigurableP {
public:
    unsigned int type() const override { return ZR::fourcc("pckt"); }
    int configure(ZR::CM::RComponentConfiguration& configuration) override;
    int runloop(zrbase::object_refcount* arg) override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

    // The IP, UDP and RTP headers around the payload of one packet.
    static constexpr unsigned int kOverhead = 20 + 8 + 12;

private:
    // Packetizes until the input ends; 0 or a result code.
    int packetize();
    void drainInput();

    CRunStatus mRun;
    unsigned int mMTU = 1400;
    std::uint16_t mPort = 0;
    std::uint32_t mSSRC = 0;
};

}  // namespace cmcomponents

#endif
