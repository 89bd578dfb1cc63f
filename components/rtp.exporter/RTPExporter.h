// RRTPExporter: sends the RTP packets of its first input queue over UDP, paced in real
// time by the frames' start times (a receiver plays them as they come).
//
// Input: RRTPFrames with an RRTPDescription (what a packetizer writes). Each packet is
// packed (header and payload) into one datagram. A send that fails — the receiver's port
// closed, the host unreachable — fails the run with kResultFileWriteFailed and a line that
// names the destination; the rest of the input is then read and dropped so that nothing
// upstream waits forever. The exporter's stream, if the host gives one, is not used.
//
// Settings (configure()): "host" the receiver's IPv4 address, default 127.0.0.1; "port"
// its UDP port, default 5004; "realtime" 1 to pace by the frames' times (default), 0 to
// send as fast as the queue delivers.
//
// Threads: configure() on the application's thread before start(); runloop() on the
// component's thread; getStatus() from any thread.
#ifndef CM_COMPONENTS_RTPEXPORTER_H
#define CM_COMPONENTS_RTPEXPORTER_H

#include "common/RunStatus.h"

#include <cm/CMExporter.h>
#include <cm/CMRTP.h>

#include <string>

namespace cmcomponents {

class RRTPExporter : public ZR::CM::RExporter {
public:
    int configure(ZR::CM::RExporterConfiguration& configuration) override;
    int runloop(zrbase::object_refcount* arg) override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

private:
    // Sends until the input ends; 0 or a result code.
    int send(ZR::CM::RQFrameReader& reader);
    void drainInputs();

    CRunStatus mRun;
    std::string mHost = "127.0.0.1";
    int mPort = 5004;
    bool mRealTime = true;
};

}  // namespace cmcomponents

#endif
