#include "rtsp.importer/RtpTrack.h"

#include <cm/CMFrame.h>

#include <sstream>

namespace cmcomponents {

CRtpTrack::CRtpTrack(std::unique_ptr<CRtpDepacketizer> depacketizer, CodedFormat format,
                     unsigned int payloadType)
    : mDepacketizer(std::move(depacketizer)),
      mFormat(std::move(format)),
      mPayloadType(payloadType) {}

void CRtpTrack::setTimeOrigin(std::uint32_t rtptime) {
    mHaveOrigin = true;
    mOriginTime = 0.0;
    mLastTimestamp = rtptime;
    mLastTicks = 0;
}

void CRtpTrack::receive(const unsigned char* bytes, std::size_t size, double arrival,
                        FrameSink& sink) {
    CRtpPacket packet;
    if (!packet.parse(bytes, size) || packet.payloadType != mPayloadType) {
        ++mCounts.malformed;
        return;
    }
    if (!mHaveOrigin) {
        setTimeOrigin(packet.timestamp);
        mOriginTime = arrival;
    }
    if (!mStarted) {
        mStarted = true;
        mFirstTime = secondsOf(packet.timestamp);
    }
    mSink = &sink;
    mReorder.push(packet, bytes, size, *this);
    mSink = nullptr;
}

void CRtpTrack::finish(FrameSink& sink) {
    mSink = &sink;
    mReorder.flush(*this);
    mDepacketizer->flush(*this);
    mSink = nullptr;
}

void CRtpTrack::deliver(const CRtpPacket& packet, bool afterLoss) {
    mDepacketizer->push(packet, afterLoss, *this);
}

double CRtpTrack::secondsOf(std::uint32_t timestamp) {
    mLastTicks += static_cast<std::int32_t>(timestamp - mLastTimestamp);
    mLastTimestamp = timestamp;
    return mOriginTime + mFormat.timeBase.seconds(mLastTicks);
}

void CRtpTrack::take(const CRtpAccessUnit& unit) {
    const double time = secondsOf(unit.timestamp);
    if (mFormat.isVideo() && !mKeySeen) {
        if (!unit.key) {
            ++mCounts.skipped;
            return;
        }
        mKeySeen = true;
    }
    if (mCounts.frames > 0 && time <= mLastFrameTime) {
        ++mCounts.dropped;
        return;
    }
    CodedFrameTimes times;
    times.start = time;
    times.decode = time;
    times.index = mIndex++;
    times.key = unit.key;
    ZR::RPtr<ZR::CM::RFrame> frame(createCodedFrame(mFormat.media, mFormat.codec, unit.data,
                                                    static_cast<unsigned int>(unit.size), times));
    ++mCounts.frames;
    mLastFrameTime = time;
    mSink->frame(*this, frame);
}

CodedFormat CRtpTrack::format() const {
    CodedFormat format = mFormat;
    mDepacketizer->completeFormat(format);
    return format;
}

CRtpTrack::Counts CRtpTrack::counts() const {
    Counts counts = mCounts;
    counts.packets = mReorder.counts();
    counts.dropped += mDepacketizer->dropped();
    return counts;
}

std::string CRtpTrack::summary() const {
    const Counts c = counts();
    std::ostringstream text;
    text << c.frames << " frames from " << c.packets.delivered << " packets, " << c.packets.lost
         << " lost, " << c.packets.duplicated << " duplicated, " << c.packets.reordered
         << " reordered, " << c.malformed << " malformed, " << c.dropped << " frames dropped";
    if (c.skipped > 0) {
        text << ", " << c.skipped << " before the first key frame";
    }
    return text.str();
}

}  // namespace cmcomponents
