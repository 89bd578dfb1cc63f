// RRTPExporter: sends the RTP streams of its input queues over UDP, paced in real time on
// one clock for all of them, each with its RTCP sender reports, so that a receiver plays
// them as they come and in sync.
//
// Input i: RRTPFrames with an RRTPDescription (what a packetizer writes). Its packets go
// to the host's port PORT + 2i, one datagram each, and its sender reports to PORT + 2i + 1:
// the port pair of the SDP "m=" line that names port PORT + 2i. A frame leaves when its aux
// time (the sending time its packetizer gave it) comes on the shared clock, which starts
// with the first frame of any stream; a frame already late leaves at once. A sender
// report goes before a stream's first packet and then every five seconds of the stream;
// it ties the stream's RTP timestamps to wall-clock time on the shared clock. The
// receiver's port being closed for a moment does not end the stream (RTP is lossy by
// design and listeners may come later).
//
// Failures: an input whose frames come without an RTP description fails the run with
// kResultNoValidTracks (an input that ends with neither is an empty stream); a socket that
// cannot be set up, a send that fails otherwise or a packet larger than a datagram, with
// kResultFileWriteFailed and a line that names the destination. Every input is then read
// to its end and dropped, so that nothing upstream waits for ever. The exporter's stream,
// if the host gives one, is not used.
//
// Settings (configure()): "host" the receiver's IPv4 address, default 127.0.0.1; "port"
// the UDP port of the first stream, default 5004; "realtime" 1 to pace by the frames'
// times (default), 0 to send as fast as the queues deliver.
//
// Threads: configure() on the application's thread before start(); runloop() on the
// component's thread, which sends each stream on a thread of its own (those read the
// component's readers, so they obey its pause and abort); getStatus() from any thread.
#ifndef CM_COMPONENTS_RTPEXPORTER_H
#define CM_COMPONENTS_RTPEXPORTER_H

#include "common/RunStatus.h"

#include <cm/CMExporter.h>
#include <cm/CMRTP.h>
#include <zr/CMutex.h>

#include <chrono>
#include <string>

namespace cmcomponents {

class RRTPExporter : public ZR::CM::RExporter {
public:
    int configure(ZR::CM::RExporterConfiguration& configuration) override;
    int runloop(zrbase::object_refcount* arg) override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

    // Seconds of a stream between two of its sender reports.
    static constexpr double kReportInterval = 5.0;

private:
    using Clock = std::chrono::steady_clock;

    // Sends input i until it ends (reading and dropping it once the run has failed).
    void sendStream(int input);
    void sendFrames(int input, const ZR::CM::RRTPDescription& description,
                    ZR::RPtr<const ZR::CM::RFrame> first);
    // When a frame of the given time is due; the first call of the run starts the clock.
    Clock::time_point dueTime(double time);
    // Wall-clock seconds since 1970 of a time of the streams.
    double wallClock(double time);
    // Sleeps until `when`, in short steps so that an abort is noticed; CThreadAbort then.
    void sleepUntil(Clock::time_point when) const;

    CRunStatus mRun;
    std::string mHost = "127.0.0.1";
    int mPort = 5004;
    bool mRealTime = true;
    std::string mCname;  // the sender reports' CNAME

    // Guards the shared clock: mStarted, mOrigin, mOriginTime and mOriginWallClock.
    ZR::CMutex mClockMutex;
    bool mStarted = false;        // guarded by mClockMutex
    Clock::time_point mOrigin;    // guarded by mClockMutex
    double mOriginTime = 0;       // the streams' time at mOrigin; guarded by mClockMutex
    double mOriginWallClock = 0;  // seconds since 1970 at mOrigin; guarded by mClockMutex
};

}  // namespace cmcomponents

#endif
