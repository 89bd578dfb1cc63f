#include "rtsp.importer/RtspImporter.h"

#include "common/MovieTracks.h"
#include "common/TrackChoice.h"
#include "rtsp.importer/RtpPackets.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMLogger.h>
#include <cm/CMQueueRW.h>
#include <cm/CMTrackInfo.h>
#include <zr/RURI.h>

#include <algorithm>
#include <random>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RFrame;
using ZR::CM::RMovieInfo;

namespace cmcomponents {

namespace {

using Clock = std::chrono::steady_clock;

// How long one wait for packets may take before the run looks at its state again.
constexpr int kPollMilliseconds = 100;
// How long UDP may bring nothing before the session is set up over the connection.
constexpr double kUdpWait = 3.0;
// How long the first packets of the other tracks are waited for before the recording's
// start is fixed without them.
constexpr double kStartWait = 2.0;
// How long the other tracks may take to reach the length to record once one has.
constexpr double kFinishWait = 2.0;
// How often receiver reports go out and the status note is brought up to date.
constexpr double kReportInterval = 5.0;
const char kCname[] = "cm-rtsp-importer";

double secondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

void logf(int priority, const std::string& text) {
    ZR::CM::RLogger::getDefault()->logf(priority, "rtsp importer: %s", text.c_str());
}

// Whether an RTP-Info URL names the track of a control URL: servers give it whole or as
// written in the description.
bool sameTrack(const std::string& info, const std::string& control) {
    if (info.empty()) {
        return false;
    }
    const std::size_t shorter = std::min(info.size(), control.size());
    return info.compare(info.size() - shorter, shorter, control, control.size() - shorter,
                        shorter) == 0;
}

}  // namespace

RRtspImporter::RRtspImporter()
    : mSettings("rtsp importer", {{"url", SettingSpec::Kind::kText, 0, 0, nullptr,
                                   SettingSpec::Target::kComponent, nullptr, nullptr},
                                  {"transport", SettingSpec::Kind::kChoice, 0, 0, "auto udp tcp",
                                   SettingSpec::Target::kComponent, nullptr, "auto"},
                                  {"timeout", SettingSpec::Kind::kInteger, 1, 3600, nullptr,
                                   SettingSpec::Target::kComponent, nullptr, "10"},
                                  {"seconds", SettingSpec::Kind::kInteger, 0, 1000000000, nullptr,
                                   SettingSpec::Target::kComponent, nullptr, "0"},
                                  {"tracks", SettingSpec::Kind::kText, 0, 0, nullptr,
                                   SettingSpec::Target::kComponent, nullptr, nullptr}}) {}

int RRtspImporter::init(RPtr<ZR::CM::RStream> stream, std::vector<ZR::CM::RQueue*>& outputs) {
    mRun.clear();
    mRun.setPhase(CComponentStatus::kInitialized);
    mStopping.store(false, std::memory_order_release);
    mConfigureResult = ZR::CM::kResultOK;
    mConfigureWhy.clear();
    close();
    return RImporter::init(std::move(stream), outputs);
}

int RRtspImporter::componentWillReset() {
    close();
    return RImporter::componentWillReset();
}

void RRtspImporter::close() noexcept {
    mOutputs.clear();
    mPending.clear();
    mTransport.reset();
    mClient.reset();
    mSources.clear();
}

int RRtspImporter::takeSettings(ZR::CM::RImporterConfiguration& configuration) {
    std::string why;
    int result = mSettings.configure(configuration, why);
    std::vector<int> trackOfQueue;
    if (result == ZR::CM::kResultOK && !mSettings.get("tracks").empty()) {
        // Before the source is open any track number may be there.
        const std::size_t tracks = isOpen() ? mSources.size() : 100000;
        result =
            chooseTracks(mSettings.get("tracks"), tracks, 0, "rtsp importer", trackOfQueue, why);
    }
    if (result != ZR::CM::kResultOK) {
        mConfigureResult = result;
        mConfigureWhy = why;
        mRun.fail(result, why);
    }
    return result;
}

int RRtspImporter::preconfigure(ZR::CM::RImporterConfiguration& configuration) {
    return takeSettings(configuration);
}

int RRtspImporter::configure(ZR::CM::RImporterConfiguration& configuration) {
    const int result = takeSettings(configuration);
    if (result == ZR::CM::kResultOK) {
        mRun.setPhase(CComponentStatus::kConfigured);
    }
    return result;
}

int RRtspImporter::openSource() {
    close();
    if (mConfigureResult != ZR::CM::kResultOK) {
        return mConfigureResult;
    }
    const std::string url = mSettings.get("url");
    mTimeout = std::stod(mSettings.get("timeout"));
    std::string why;
    int result = ZR::CM::kResultOK;
    std::string sdp;
    if (ZR::RURI(url.c_str()).getKind() != ZR::RURI::kRTSP) {
        why = url.empty() ? "no URL to record (the url setting)" : "not an rtsp:// URL: " + url;
        result = ZR::CM::kResultFileOpenFailed;
    } else {
        mClient.reset(new CRtspClient(url, static_cast<int>(mTimeout * 1000)));
        result = mClient->describe(sdp, why);
    }
    if (result == ZR::CM::kResultOK && !mDescription.parse(sdp)) {
        why = "the reply to DESCRIBE " + mClient->url() + " is no session description";
        result = ZR::CM::kResultInputMetaDataParseFailed;
    }
    std::string left;
    for (const CSdpMedia& media :
         result == ZR::CM::kResultOK ? mDescription.media : std::vector<CSdpMedia>()) {
        Source source{media, CodedFormat()};
        std::string reason;
        if (!CRtpDepacketizer::create(media.format, source.format, reason)) {
            left += (left.empty() ? "" : "; ") + media.kind + ": " + reason;
            logf(ZR::CM::kLogInfo, "a track of " + mClient->url() + " left out: " + reason);
            continue;
        }
        source.format.frameRate = media.frameRate;
        mSources.push_back(source);
    }
    if (result == ZR::CM::kResultOK && mSources.empty()) {
        why = "no track of " + mClient->url() + " can be received" +
              (left.empty() ? "" : " (" + left + ")");
        result = ZR::CM::kResultNoValidTracks;
    }
    if (result != ZR::CM::kResultOK) {
        close();
        mRun.fail(result, why);
    }
    return result;
}

RPtr<RMovieInfo> RRtspImporter::getMovieInfo() {
    RPtr<RMovieInfo> movie(new RMovieInfo(static_cast<int>(mSources.size())));
    if (!isOpen()) {
        return movie;
    }
    movie->mMovieName = mClient->url().c_str();
    movie->setMetaValue("protocol", "rtsp");
    if (!mDescription.name.empty()) {
        movie->setMetaValue("session-name", mDescription.name.c_str());
    }
    unsigned int id = 0;
    for (const Source& source : mSources) {
        const CodedFormat& format = source.format;
        if (format.isVideo()) {
            addNewTrack(*movie, new ZR::CM::RVideoTrackInfo(
                                    ++id, format.codec, 0.0, 0.0, format.frameRate, 0, format.width,
                                    format.height, ZR::Fixed64(format.frameRate)));
        } else {
            addNewTrack(*movie, new ZR::CM::RAudioTrackInfo(
                                    ++id, format.codec, 0.0, 0.0, format.sampleRate, 0,
                                    format.channels, format.bytesPerSample * 8,
                                    ZR::Fixed64(static_cast<double>(format.sampleRate))));
        }
    }
    return movie;
}

int RRtspImporter::runloop(zrbase::object_refcount*) {
    mRun.setPhase(CComponentStatus::kWorking);
    if (!isOpen()) {
        if (!mRun.failed()) {
            mRun.fail(ZR::CM::kResultComponentInitFailed, "the source was not opened");
        }
    } else if (mConfigureResult != ZR::CM::kResultOK) {
        mRun.fail(mConfigureResult, mConfigureWhy);
    } else {
        record();
    }
    for (int i = 0; i < mWriterCount; ++i) {
        mWriters[i]->end();
    }
    if (!mOutputs.empty()) {
        logf(ZR::CM::kLogInfo, mClient->url() + ": " + summary());
    }
    mRun.complete();
    return mRun.failed() ? -1 : 0;
}

void RRtspImporter::record() {
    if (mSources.empty() || mWriterCount <= 0) {
        return;
    }
    mSeconds = std::stod(mSettings.get("seconds"));
    mSsrc = static_cast<std::uint32_t>(std::random_device()());
    const std::string transport = mSettings.get("transport");
    bool interleaved = transport == "tcp";
    for (;;) {
        std::string why;
        bool retry = false;
        const int result = start(interleaved, retry, why);
        if (retry && !interleaved && transport == "auto") {
            logf(ZR::CM::kLogInfo, why + "; setting " + mClient->url() + " up over TCP");
            mClient->teardown(false);
            interleaved = true;
            continue;
        }
        if (result != ZR::CM::kResultOK) {
            mRun.fail(result, why);
            mClient->teardown(interleaved);
            return;
        }
        if (receive(!interleaved && transport == "auto") == Outcome::kNoUdp) {
            logf(ZR::CM::kLogInfo,
                 "no media came over UDP; setting " + mClient->url() + " up over TCP");
            mClient->teardown(false);
            interleaved = true;
            continue;
        }
        finish(interleaved);
        return;
    }
}

int RRtspImporter::start(bool interleaved, bool& retry, std::string& why) {
    mOutputs.clear();
    mPending.clear();
    mTransport.reset();
    mGateOpen = false;
    mFinishing = false;
    std::vector<int> trackOfQueue;
    const int chosen =
        chooseTracks(mSettings.get("tracks"), mSources.size(),
                     static_cast<std::size_t>(mWriterCount), "rtsp importer", trackOfQueue, why);
    if (chosen != ZR::CM::kResultOK) {
        return chosen;
    }
    std::vector<std::size_t> queues;  // of the tracks set up, in queue order
    for (std::size_t queue = 0; queue < trackOfQueue.size(); ++queue) {
        if (trackOfQueue[queue] >= 0) {
            queues.push_back(queue);
        }
    }
    const std::size_t count = queues.size();
    std::unique_ptr<CUdpTransport> udp(interleaved ? nullptr : new CUdpTransport);
    if (udp && !udp->open(count, why)) {
        return ZR::CM::kResultUnspecified;
    }
    std::vector<CRtspClient::Transport> replies(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t queue = queues[i];
        const Source& source = mSources[static_cast<std::size_t>(trackOfQueue[queue])];
        CodedFormat format;
        std::unique_ptr<CRtpDepacketizer> depacketizer =
            CRtpDepacketizer::create(source.media.format, format, why);
        format.frameRate = source.format.frameRate;
        Output output;
        output.track.reset(
            new CRtpTrack(std::move(depacketizer), format, source.media.format.payloadType));
        output.writer = mWriters[queue];
        output.source = static_cast<std::size_t>(trackOfQueue[queue]);
        output.url = mClient->controlUrl(source.media.control);
        const int result =
            mClient->setup(output.url, transportFor(i, udp.get()), replies[i], retry, why);
        if (result != ZR::CM::kResultOK) {
            return result;
        }
        if (udp) {
            udp->setServerControlPort(i, replies[i].serverPorts[1]);
        }
        mOutputs.push_back(std::move(output));
    }
    std::vector<CRtspClient::StreamStart> starts;
    std::vector<unsigned char> early;
    const int result = mClient->play(mClient->controlUrl(mDescription.control), starts, early, why);
    if (result != ZR::CM::kResultOK) {
        return result;
    }
    mPlayed = Clock::now();
    mInterleaved = !udp;
    if (udp) {
        mTransport = std::move(udp);
    } else {
        auto* connection = new CInterleavedTransport(*mClient->socket(), early);
        mTransport.reset(connection);
        for (std::size_t i = 0; i < count; ++i) {
            const CRtspClient::Transport& reply = replies[i];
            const int rtp = reply.interleaved ? reply.channels[0] : static_cast<int>(2 * i);
            const int rtcp = reply.interleaved ? reply.channels[1] : static_cast<int>(2 * i + 1);
            connection->mapChannel(rtp, i, false);
            connection->mapChannel(rtcp, i, true);
        }
    }
    applyRtpInfo(starts);
    return ZR::CM::kResultOK;
}

std::string RRtspImporter::transportFor(std::size_t index, const CUdpTransport* udp) const {
    if (!udp) {
        return "RTP/AVP/TCP;unicast;interleaved=" + std::to_string(2 * index) + "-" +
               std::to_string(2 * index + 1);
    }
    return "RTP/AVP;unicast;client_port=" + std::to_string(udp->port(index)) + "-" +
           std::to_string(udp->port(index) + 1);
}

void RRtspImporter::applyRtpInfo(const std::vector<CRtspClient::StreamStart>& starts) {
    std::vector<const CRtspClient::StreamStart*> found;
    for (const Output& output : mOutputs) {
        const auto match = std::find_if(
            starts.begin(), starts.end(), [&output](const CRtspClient::StreamStart& s) {
                return sameTrack(s.url, output.url) || sameTrack(output.url, s.url);
            });
        if (match == starts.end()) {
            return;  // one clock for all tracks, or none
        }
        found.push_back(&*match);
    }
    for (std::size_t i = 0; i < mOutputs.size(); ++i) {
        mOutputs[i].track->setTimeOrigin(found[i]->rtptime);
    }
}

RRtspImporter::Outcome RRtspImporter::receive(bool fallBack) {
    Clock::time_point lastPacket = mPlayed;
    Clock::time_point lastReport = mPlayed;
    bool anyPacket = false;
    std::string why;
    for (;;) {
        checkpoint();
        CRtpTransport::Packet packet;
        const CRtpTransport::Wait wait = mTransport->receive(packet, kPollMilliseconds, why);
        const Clock::time_point now = Clock::now();
        if (wait == CRtpTransport::Wait::kClosed) {
            break;
        }
        if (wait == CRtpTransport::Wait::kPacket) {
            Output& output = mOutputs[packet.track];
            if (packet.control) {
                output.ended = output.ended || rtcpHasBye(packet.data, packet.size);
            } else {
                if (!anyPacket) {
                    anyPacket = true;
                    mFirstPacket = now;
                }
                lastPacket = now;
                output.track->receive(packet.data, packet.size, secondsBetween(mPlayed, now),
                                      *this);
            }
        }
        openGate(now, false);
        if (fallBack && !anyPacket &&
            secondsBetween(mPlayed, now) >= std::min(kUdpWait, mTimeout)) {
            return Outcome::kNoUdp;
        }
        if (over(now, lastPacket, anyPacket, why)) {
            break;
        }
        mClient->keepAlive(mInterleaved);
        if (secondsBetween(lastReport, now) >= kReportInterval) {
            lastReport = now;
            for (std::size_t i = 0; i < mOutputs.size(); ++i) {
                mTransport->sendControl(i, rtcpReceiverReport(mSsrc, kCname));
            }
            mRun.setNote(summary());
        }
    }
    if (!why.empty()) {
        logf(ZR::CM::kLogNotice, mClient->url() + ": " + why);
        if (!anyPacket) {
            mRun.fail(ZR::CM::kResultFileReadFailed, why);
        }
    }
    return Outcome::kEnded;
}

bool RRtspImporter::over(Clock::time_point now, Clock::time_point lastPacket, bool anyPacket,
                         std::string& why) {
    if (mStopping.load(std::memory_order_acquire)) {
        return true;
    }
    const auto all = [this](bool Output::*flag) {
        return std::all_of(mOutputs.begin(), mOutputs.end(),
                           [flag](const Output& output) { return output.*flag; });
    };
    if (all(&Output::finished) || all(&Output::ended)) {
        return true;
    }
    if (mFinishing && secondsBetween(mFinishingSince, now) >= kFinishWait) {
        return true;
    }
    if (secondsBetween(lastPacket, now) < mTimeout) {
        return false;
    }
    why = anyPacket ? "no media for " + mSettings.get("timeout") + " s: taken as the end"
                    : "no media came within " + mSettings.get("timeout") + " s";
    return true;
}

void RRtspImporter::finish(bool interleaved) {
    const Clock::time_point now = Clock::now();
    for (Output& output : mOutputs) {
        output.track->finish(*this);
    }
    openGate(now, true);
    mClient->teardown(interleaved);
    mRun.setNote(summary());
}

void RRtspImporter::frame(CRtpTrack& track, RPtr<RFrame> frame) {
    const auto output = static_cast<std::size_t>(
        std::find_if(mOutputs.begin(), mOutputs.end(),
                     [&track](const Output& o) { return o.track.get() == &track; }) -
        mOutputs.begin());
    if (!mGateOpen) {
        mPending.push_back(Pending{output, std::move(frame)});
        return;
    }
    publish(output, std::move(frame), Clock::now());
}

void RRtspImporter::openGate(Clock::time_point now, bool force) {
    if (mGateOpen) {
        return;
    }
    const bool anyStarted = std::any_of(mOutputs.begin(), mOutputs.end(),
                                        [](const Output& o) { return o.track->started(); });
    const bool allStarted = std::all_of(mOutputs.begin(), mOutputs.end(),
                                        [](const Output& o) { return o.track->started(); });
    if (!force &&
        (!anyStarted || (!allStarted && secondsBetween(mFirstPacket, now) < kStartWait))) {
        return;
    }
    mGateOpen = true;
    bool first = true;
    for (const Output& output : mOutputs) {
        if (output.track->started() && (first || output.track->firstTime() < mZero)) {
            mZero = output.track->firstTime();
            first = false;
        }
    }
    while (!mPending.empty()) {
        Pending pending = std::move(mPending.front());
        mPending.pop_front();
        publish(pending.output, std::move(pending.frame), now);
    }
}

void RRtspImporter::publish(std::size_t index, RPtr<RFrame> frame, Clock::time_point now) {
    Output& output = mOutputs[index];
    const double time = frame->getStartTime() - mZero;
    if (output.finished) {
        return;
    }
    if (time < 0.0) {
        ++output.early;
        return;
    }
    if (mSeconds > 0.0 && time >= mSeconds) {
        output.finished = true;
        if (!mFinishing) {
            mFinishing = true;
            mFinishingSince = now;
        }
        return;
    }
    frame->setStartTime(time);
    frame->setAuxTime(time);
    if (!output.described) {
        output.writer->setDescription(
            RPtr<const ZR::CM::RDescription>(output.track->format().createDescription()));
        output.described = true;
    }
    output.writer->put(frame);
    mRun.addFrame(static_cast<unsigned long long>(frame->getSize()));
}

std::string RRtspImporter::summary() const {
    std::string text;
    for (std::size_t i = 0; i < mOutputs.size(); ++i) {
        const Output& output = mOutputs[i];
        text += (i == 0 ? "" : "; ") + std::string("track ") + std::to_string(output.source + 1) +
                " (" + fourccText(mSources[output.source].format.codec) +
                "): " + output.track->summary();
        if (output.early > 0) {
            text += ", " + std::to_string(output.early) + " before the start";
        }
    }
    return text;
}

}  // namespace cmcomponents
