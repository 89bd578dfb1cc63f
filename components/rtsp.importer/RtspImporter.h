// rtsp.importer: records a live stream that an RTSP server offers (a camera, a live
// encoder) and writes each of its tracks to an output queue, as coded frames in the form
// of common/CodedMedia.h: H.264 ("avc1", Annex B), AAC ("mp4a", raw, with its
// AudioSpecificConfig) and 16-bit PCM ("lpcm").
//
// It has no byte stream: the host gives it the URL in the "url" setting through
// preconfigure() (init() takes a null stream). openSource() connects and asks for the
// session description, so that getMovieInfo() can describe the tracks without playing
// them; the run sets up the tracks that have a queue, plays, and receives until the
// stream ends (the server closes the connection, says goodbye in RTCP, or sends nothing
// for the time-out), until the "seconds" setting's length is recorded, or until stop()
// is called from another thread, which is how a host ends a recording on a signal. Every
// one of these ends the queues after the last whole frame, so a file written downstream
// is finished properly; an abort ends nothing.
//
// Transport: RTP over UDP, one port pair per track, or interleaved on the RTSP connection
// ("transport" tcp). By default (auto) UDP is tried first, and the session is set up
// again over the connection when the server refuses UDP or no packet arrives within
// three seconds (a firewall or NAT in the way).
//
// Timing: frame times come from the RTP timestamps, on one clock for all tracks (the
// server's RTP-Info where it gives one for every track, else each track's first arrival),
// and start at 0 with the first packet of any track; video starts at its first key frame.
// Packets are put back in order within a small window; losses, duplicates and frames
// dropped for a lost part are counted, shown in the status while the run goes on, and
// logged at its end.
//
// Tracks: the media blocks of the description whose payload format has a depacketizer, in
// description order, numbered from 1; the rest are left out and logged. Queue i carries
// track i, or the i-th of the "tracks" setting (common/TrackChoice.h); tracks without a
// queue are not set up, and queues without a track end without a description. A track's
// description is set before its first frame.
//
// Settings (preconfigure() or configure(); CAvSettings rejects anything else):
//   "url"        rtsp://[user:password@]host[:port]/path (required)
//   "transport"  auto, udp or tcp (auto)
//   "timeout"    seconds to wait for a reply, and for media before taking the stream as
//                ended (10)
//   "seconds"    the length to record, in media seconds; 0 records to the end (0)
//   "tracks"     the track numbers for the queues, in queue order ("2,1"); all by default
//
// Failures (openSource()'s result, or the status of the run): a missing or wrong URL, a
// server that cannot be reached or refuses a request, kResultFileOpenFailed; no RTSP reply,
// a connection lost, no media at all, kResultFileReadFailed; a description that is not
// one, too large or cut short, kResultInputMetaDataParseFailed; no track with a
// depacketizer, kResultNoValidTracks; a setting not taken, kResultSettingParseFailed.
//
// Threads: preconfigure(), openSource(), getMovieInfo() and configure() on the
// application's thread before start(); runloop() on the component's thread; stop() and
// getStatus() from any thread.
#ifndef CM_COMPONENTS_RTSPIMPORTER_RTSPIMPORTER_H
#define CM_COMPONENTS_RTSPIMPORTER_RTSPIMPORTER_H

#include "av/AvSettings.h"
#include "common/CodedMedia.h"
#include "common/RunStatus.h"
#include "rtsp.importer/RtpTrack.h"
#include "rtsp.importer/RtpTransport.h"
#include "rtsp.importer/RtspClient.h"
#include "rtsp.importer/SdpSession.h"

#include <cm/CMImporter.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace cmcomponents {

class RRtspImporter : public ZR::CM::RImporter, private CRtpTrack::FrameSink {
public:
    RRtspImporter();

    // Clears the status of an earlier run and closes its source, then as RImporter::init().
    int init(ZR::RPtr<ZR::CM::RStream> stream, std::vector<ZR::CM::RQueue*>& outputs) override;
    // Closes the source too; no-throw.
    int componentWillReset() override;
    int preconfigure(ZR::CM::RImporterConfiguration& configuration) override;
    int openSource() override;
    ZR::RPtr<ZR::CM::RMovieInfo> getMovieInfo() override;
    int configure(ZR::CM::RImporterConfiguration& configuration) override;
    // Ends the recording after the frames received so far; any thread.
    void stop() override { mStopping.store(true, std::memory_order_release); }
    int runloop(zrbase::object_refcount* arg) override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

    bool isOpen() const noexcept { return mClient != nullptr; }

private:
    using Clock = std::chrono::steady_clock;

    // A track the description offers.
    struct Source {
        CSdpMedia media;
        CodedFormat format;
    };
    // A track being recorded into its queue.
    struct Output {
        std::unique_ptr<CRtpTrack> track;
        ZR::CM::RQFrameWriter* writer = nullptr;
        std::size_t source = 0;        // its track in mSources
        std::string url;               // its control URL
        bool described = false;        // its queue has its description
        bool finished = false;         // it has reached the length to record
        bool ended = false;            // the server said goodbye
        unsigned long long early = 0;  // frames before the recording's start
    };
    struct Pending {
        std::size_t output;
        ZR::RPtr<ZR::CM::RFrame> frame;
    };
    enum class Outcome { kEnded, kNoUdp };

    void close() noexcept;
    int takeSettings(ZR::CM::RImporterConfiguration& configuration);
    // Records into the queues until the stream or the recording ends.
    void record();
    // Sets the tracks up and plays them: 0 or a result code with why; retry is set when
    // the server refused UDP and the connection may carry the media instead.
    int start(bool interleaved, bool& retry, std::string& why);
    // The transport header of a SETUP for the track.
    std::string transportFor(std::size_t index, const CUdpTransport* udp) const;
    // Puts every track on the server's clock, when RTP-Info names a start for each.
    void applyRtpInfo(const std::vector<CRtspClient::StreamStart>& starts);
    // Receives until the recording is over; kNoUdp when fallBack allows giving UDP up.
    Outcome receive(bool fallBack);
    // Whether the recording is over; why says how it ended when that is worth a note.
    bool over(Clock::time_point now, Clock::time_point lastPacket, bool anyPacket,
              std::string& why);
    void finish(bool interleaved);

    // CRtpTrack::FrameSink: a frame of one of the outputs' tracks.
    void frame(CRtpTrack& track, ZR::RPtr<ZR::CM::RFrame> frame) override;
    // Once every track has started (or waiting for the rest took too long): fixes second 0
    // of the recording and hands on what waited for it. force opens it at once.
    void openGate(Clock::time_point now, bool force);
    void publish(std::size_t output, ZR::RPtr<ZR::CM::RFrame> frame, Clock::time_point now);
    // What each track has received, for the status and the log.
    std::string summary() const;

    CRunStatus mRun;
    CAvSettings mSettings;
    // A setting refused by configure() fails the run.
    int mConfigureResult = ZR::CM::kResultOK;
    std::string mConfigureWhy;
    std::atomic<bool> mStopping{false};

    std::unique_ptr<CRtspClient> mClient;
    CSdpSession mDescription;
    std::vector<Source> mSources;

    // The run's state, on the component's thread.
    std::unique_ptr<CRtpTransport> mTransport;
    bool mInterleaved = false;
    double mTimeout = 10.0;  // seconds, from the settings
    std::vector<Output> mOutputs;
    std::deque<Pending> mPending;  // frames that came before second 0 was fixed
    bool mGateOpen = false;
    double mZero = 0.0;         // session seconds of the recording's start
    double mSeconds = 0.0;      // the length to record, 0 for all
    Clock::time_point mPlayed;  // when PLAY was answered
    Clock::time_point mFirstPacket;
    bool mFinishing = false;  // a track has reached the length to record
    Clock::time_point mFinishingSince;
    std::uint32_t mSsrc = 0;  // ours, in receiver reports
};

}  // namespace cmcomponents

#endif
