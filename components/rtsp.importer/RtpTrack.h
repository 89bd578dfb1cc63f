// CRtpTrack: one RTP stream of a session on its way to an output queue. Packets go in as
// they arrive (any order, with duplicates, losses and garbage); coded frames with times in
// seconds come out, in order, through a FrameSink.
//
// Inside: the packets are checked and put back in order (CRtpReorderBuffer), depacketized
// (CRtpDepacketizer) and timed. A frame's time is its RTP timestamp, unwrapped past 2^32,
// counted from a time origin: the rtptime that the server's RTP-Info names for the start
// of play, or else the first packet's timestamp at its arrival, so that the tracks of one
// session share one clock. Video starts at its first key frame; what comes before it
// cannot be decoded. Frames whose time does not move forward are dropped: a muxer takes
// none that go back.
//
// Belongs to the thread that receives the session; no lock.
#ifndef CM_COMPONENTS_RTSPIMPORTER_RTPTRACK_H
#define CM_COMPONENTS_RTSPIMPORTER_RTPTRACK_H

#include "common/CodedMedia.h"
#include "rtsp.importer/RtpDepacketizer.h"
#include "rtsp.importer/RtpReorderBuffer.h"

#include <zr/RPtr.h>

#include <memory>
#include <string>

namespace cmcomponents {

class CRtpTrack : private CRtpReorderBuffer::Target, private CRtpDepacketizer::Sink {
public:
    class FrameSink {
    public:
        virtual ~FrameSink() = default;
        // A new coded frame (count 0) of the track, its times in the session's seconds.
        virtual void frame(CRtpTrack& track, ZR::RPtr<ZR::CM::RFrame> frame) = 0;
    };

    struct Counts {
        CRtpReorderBuffer::Counts packets;
        unsigned long long malformed = 0;  // not RTP, or of another payload type
        unsigned long long frames = 0;     // handed on
        unsigned long long dropped = 0;    // frames lost with a part, or out of time order
        unsigned long long skipped = 0;    // frames before the first key frame
    };

    // format describes the frames the depacketizer makes; payloadType is the one the
    // stream's packets carry.
    CRtpTrack(std::unique_ptr<CRtpDepacketizer> depacketizer, CodedFormat format,
              unsigned int payloadType);

    // The RTP timestamp that stands for second 0 of the session (the server's RTP-Info).
    // Without one, the first packet's timestamp stands for its arrival.
    void setTimeOrigin(std::uint32_t rtptime);
    // Takes one received packet; arrival is the session's clock in seconds.
    void receive(const unsigned char* bytes, std::size_t size, double arrival, FrameSink& sink);
    // The end of the stream: hands on what is held back.
    void finish(FrameSink& sink);

    bool started() const noexcept { return mStarted; }
    // The session time of the first packet; 0 before it.
    double firstTime() const noexcept { return mFirstTime; }
    // The format, completed with what the stream has said in band since.
    CodedFormat format() const;
    Counts counts() const;
    // "1234 frames, 5678 packets, 2 lost, ..."
    std::string summary() const;

private:
    void deliver(const CRtpPacket& packet, bool afterLoss) override;
    void take(const CRtpAccessUnit& unit) override;
    double secondsOf(std::uint32_t timestamp);

    std::unique_ptr<CRtpDepacketizer> mDepacketizer;
    const CodedFormat mFormat;
    const unsigned int mPayloadType;
    CRtpReorderBuffer mReorder;
    FrameSink* mSink = nullptr;  // the sink of the receive() under way

    bool mStarted = false;
    bool mHaveOrigin = false;
    bool mKeySeen = false;
    double mFirstTime = 0.0;
    double mOriginTime = 0.0;  // session seconds at the origin timestamp
    std::uint32_t mLastTimestamp = 0;
    long long mLastTicks = 0;  // mLastTimestamp unwrapped, from the origin
    double mLastFrameTime = 0.0;
    unsigned int mIndex = 0;  // of the next frame
    Counts mCounts;
};

}  // namespace cmcomponents

#endif
