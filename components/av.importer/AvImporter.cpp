#include "av.importer/AvImporter.h"

#include "av/AvCodecs.h"
#include "av/AvLibrary.h"
#include "common/MovieTracks.h"
#include "common/StreamIO.h"
#include "common/TrackChoice.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMLogger.h>
#include <cm/CMQueueRW.h>
#include <cm/CMTrackInfo.h>

#include <algorithm>
#include <cmath>
#include <cstring>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RAudioTrackInfo;
using ZR::CM::RDescription;
using ZR::CM::RMovieInfo;
using ZR::CM::RVideoTrackInfo;

namespace cmcomponents {

namespace {

AVRational frameRateOf(const AVStream& stream) {
    return stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
}

void logf(int priority, const std::string& text) {
    ZR::CM::RLogger::getDefault()->logf(priority, "av importer: %s", text.c_str());
}

}  // namespace

RAvImporter::RAvImporter()
    : mSettings("av importer", {{"tracks", SettingSpec::Kind::kText, 0, 0, nullptr,
                                 SettingSpec::Target::kComponent, nullptr, nullptr}}) {
    initializeLibav();
}

int RAvImporter::init(RPtr<ZR::CM::RStream> stream, std::vector<ZR::CM::RQueue*>& outputs) {
    mRun.clear();
    mRun.setPhase(CComponentStatus::kInitialized);
    close();
    return RImporter::init(std::move(stream), outputs);
}

int RAvImporter::componentWillReset() {
    close();
    return RImporter::componentWillReset();
}

void RAvImporter::close() noexcept {
    mContext.reset();
    mIO.reset();
    mTracks.clear();
}

int RAvImporter::configure(ZR::CM::RImporterConfiguration& configuration) {
    std::string why;
    int result = mSettings.configure(configuration, why);
    const std::string tracks = mSettings.get("tracks");
    if (result == ZR::CM::kResultOK && !tracks.empty() && !isTrackList(tracks)) {
        why = "av importer: tracks \"" + tracks + "\" is not a list of track numbers";
        result = ZR::CM::kResultSettingParseFailed;
    }
    std::vector<int> assigned;
    if (result == ZR::CM::kResultOK && isOpen()) {
        result = assignQueues(assigned, why);
    }
    mConfigureResult = result;
    mConfigureWhy = why;
    if (result != ZR::CM::kResultOK) {
        mRun.fail(result, why);
        return result;
    }
    mRun.setPhase(CComponentStatus::kConfigured);
    return result;
}

int RAvImporter::openSource() {
    mRun.clear();
    close();
    std::string why;
    int result = ZR::CM::kResultOK;
    if (!mStream) {
        result = ZR::CM::kResultFileOpenFailed;
        why = "the importer has no stream";
    } else if ((result = openIfClosed(*mStream)) != ZR::CM::kResultOK) {
        why = std::string("cannot open ") + mStream->getURI().c_str();
    } else {
        result = openDemuxer(why);
    }
    if (result != ZR::CM::kResultOK) {
        close();
        mRun.fail(result, why);
    }
    return result;
}

int RAvImporter::openDemuxer(std::string& why) {
    mIO.reset(new CAvStreamIO(mStream, CAvStreamIO::Mode::kRead));
    AVFormatContext* context = avformat_alloc_context();
    if (!mIO->context() || !context) {
        avformat_free_context(context);
        why = "out of memory";
        return ZR::CM::kResultUnspecified;
    }
    context->pb = mIO->context();
    context->interrupt_callback = AVIOInterruptCB{&RAvImporter::interrupted, this};
    // Everything comes through the stream: a playlist or a reference inside the content
    // may not make FFmpeg open other files or URLs.
    context->io_open = &RAvImporter::refuseOpen;
    // The name only helps the demuxers guess; the bytes come through the I/O context.
    int error = avformat_open_input(&context, mStream->getURI().c_str(), nullptr, nullptr);
    if (error < 0) {  // FFmpeg has freed the context
        why = "no demuxer takes the content: " + errorText(error);
        return readFailure();
    }
    mContext.reset(context);
    if ((error = avformat_find_stream_info(context, nullptr)) < 0) {
        why = "the media's tracks cannot be read: " + errorText(error);
        return readFailure();
    }
    std::string unknown;
    for (unsigned int i = 0; i < context->nb_streams; ++i) {
        const AVStream& stream = *context->streams[i];
        const AVCodecParameters& parameters = *stream.codecpar;
        Track track{static_cast<int>(i), CodedFormat()};
        const bool media = parameters.codec_type == AVMEDIA_TYPE_VIDEO ||
                           parameters.codec_type == AVMEDIA_TYPE_AUDIO;
        if (!media || (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
            continue;
        }
        if (!describeParameters(parameters, stream.time_base, frameRateOf(stream), track.format)) {
            unknown +=
                std::string(unknown.empty() ? "" : ", ") + avcodec_get_name(parameters.codec_id);
            logf(ZR::CM::kLogInfo, "track of " +
                                       std::string(avcodec_get_name(parameters.codec_id)) +
                                       " left out: the components have no name for its codec");
            continue;
        }
        mTracks.push_back(track);
    }
    if (mTracks.empty()) {
        why = unknown.empty() ? "no audio or video track"
                              : "no track of a codec the components know (found " + unknown + ")";
        return ZR::CM::kResultNoValidTracks;
    }
    // Read errors come through the I/O context (failed()); the demuxer's complaints from
    // here on are about the content.
    if (mIO->failed()) {
        why = "reading the media failed";
        return ZR::CM::kResultFileReadFailed;
    }
    return ZR::CM::kResultOK;
}

int RAvImporter::readFailure() const {
    return mIO->failed() ? ZR::CM::kResultFileReadFailed : ZR::CM::kResultInputMetaDataParseFailed;
}

int RAvImporter::refuseOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
    return AVERROR(EPERM);
}

int RAvImporter::interrupted(void* importer) {
    return static_cast<RAvImporter*>(importer)->isAborted() ? 1 : 0;
}

int RAvImporter::assignQueues(std::vector<int>& trackOfQueue, std::string& why) const {
    return chooseTracks(mSettings.get("tracks"), mTracks.size(),
                        static_cast<std::size_t>(std::max(mWriterCount, 0)), "av importer",
                        trackOfQueue, why);
}

RPtr<RMovieInfo> RAvImporter::getMovieInfo() {
    RPtr<RMovieInfo> movie(new RMovieInfo(static_cast<int>(mTracks.size())));
    if (mStream) {
        movie->mMovieName = mStream->getURI();
    }
    if (!isOpen()) {
        return movie;
    }
    const AVFormatContext& context = *mContext;
    const double length = secondsOf(context.duration, AVRational{1, AV_TIME_BASE}, 0.0);
    movie->mMovieDuration = length;
    movie->setMetaValue("container", context.iformat->name);
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(context.metadata, "", tag, AV_DICT_IGNORE_SUFFIX))) {
        movie->setMetaValue(tag->key, tag->value);
    }
    unsigned int id = 0;
    for (const Track& track : mTracks) {
        const AVStream& stream = *context.streams[track.stream];
        const CodedFormat& format = track.format;
        const double start = secondsOf(stream.start_time, stream.time_base, 0.0);
        const double duration = secondsOf(stream.duration, stream.time_base, length);
        if (format.isVideo()) {
            const unsigned long long pictures =
                stream.nb_frames > 0 ? static_cast<unsigned long long>(stream.nb_frames)
                                     : static_cast<unsigned long long>(std::llround(
                                           std::max(duration * format.frameRate, 0.0)));
            addNewTrack(*movie, new RVideoTrackInfo(++id, format.codec, start, duration,
                                                    format.frameRate, pictures, format.width,
                                                    format.height, ZR::Fixed64(format.frameRate)));
        } else {
            const double rate = format.sampleRate;
            addNewTrack(
                *movie,
                new RAudioTrackInfo(
                    ++id, format.codec, start, duration, rate,
                    static_cast<unsigned long long>(std::llround(std::max(duration * rate, 0.0))),
                    format.channels, format.bytesPerSample * 8, ZR::Fixed64(rate)));
        }
    }
    return movie;
}

int RAvImporter::runloop(zrbase::object_refcount*) {
    mRun.setPhase(CComponentStatus::kWorking);
    std::vector<int> trackOfQueue;
    std::string why;
    if (!isOpen()) {
        if (!mRun.failed()) {
            mRun.fail(ZR::CM::kResultComponentInitFailed, "the source was not opened");
        }
    } else if (mConfigureResult != ZR::CM::kResultOK) {
        mRun.fail(mConfigureResult, mConfigureWhy);
    } else if (const int result = assignQueues(trackOfQueue, why); result != ZR::CM::kResultOK) {
        mRun.fail(result, why);
    } else {
        std::vector<int> queueOfStream(mContext->nb_streams, -1);
        for (std::size_t queue = 0; queue < trackOfQueue.size(); ++queue) {
            const int track = trackOfQueue[queue];
            if (track >= 0) {
                const Track& t = mTracks[static_cast<std::size_t>(track)];
                queueOfStream[static_cast<std::size_t>(t.stream)] = static_cast<int>(queue);
                mWriters[queue]->setDescription(
                    RPtr<const RDescription>(t.format.createDescription()));
            }
        }
        for (unsigned int i = 0; i < mContext->nb_streams; ++i) {
            if (queueOfStream[i] < 0) {
                mContext->streams[i]->discard = AVDISCARD_ALL;
            }
        }
        importPackets(queueOfStream);
    }
    for (int i = 0; i < mWriterCount; ++i) {
        mWriters[i]->end();
    }
    mRun.complete();
    return mRun.failed() ? -1 : 0;
}

void RAvImporter::importPackets(const std::vector<int>& queueOfStream) {
    PacketPtr packet(av_packet_alloc());
    if (!packet) {
        mRun.fail(ZR::CM::kResultUnspecified, "out of memory");
        return;
    }
    std::vector<const CodedFormat*> formatOfStream(queueOfStream.size(), nullptr);
    for (const Track& track : mTracks) {
        formatOfStream[static_cast<std::size_t>(track.stream)] = &track.format;
    }
    // Where each stream's last frame ended, for packets that come without a time.
    std::vector<double> ends(queueOfStream.size(), 0.0);
    std::vector<unsigned int> counts(queueOfStream.size(), 0);
    for (;;) {
        checkpoint();
        const int error = av_read_frame(mContext.get(), packet.get());
        if (error == AVERROR_EOF) {
            checkComplete(counts);
            return;
        }
        if (error < 0) {
            mRun.fail(readFailure(), mIO->failed() ? "reading the media failed"
                                                   : "the media is damaged: " + errorText(error));
            return;
        }
        const auto index = static_cast<std::size_t>(packet->stream_index);
        const int queue = index < queueOfStream.size() ? queueOfStream[index] : -1;
        if (queue < 0) {
            av_packet_unref(packet.get());
            continue;
        }
        const CodedFormat& format = *formatOfStream[index];
        const AVRational clock = mContext->streams[index]->time_base;
        CodedFrameTimes times;
        times.decode = secondsOf(packet->dts, clock, secondsOf(packet->pts, clock, ends[index]));
        times.start = secondsOf(packet->pts, clock, times.decode);
        times.duration = secondsOf(packet->duration, clock, 0.0);
        times.index = counts[index]++;
        readPacketMarks(*packet, times);
        ends[index] = times.start + times.duration;
        const RPtr<const ZR::CM::RFrame> frame(
            createCodedFrame(format.media, format.codec, packet->data,
                             static_cast<unsigned int>(packet->size), times));
        av_packet_unref(packet.get());
        mWriters[queue]->put(frame);
        mRun.addFrame(frame->getSize());
    }
}

// An MP4 or QuickTime file lists every frame of every track in its header, and FFmpeg's
// demuxer ends quietly where the data stops; so a file cut short after its header shows
// here as a track with fewer frames than its index lists. Other containers index only
// some frames, if any.
void RAvImporter::checkComplete(const std::vector<unsigned int>& counts) {
    if (std::strstr(mContext->iformat->name, "mov") == nullptr) {
        return;
    }
    for (std::size_t i = 0; i < mTracks.size(); ++i) {
        const int stream = mTracks[i].stream;
        const int listed = avformat_index_get_entries_count(mContext->streams[stream]);
        const unsigned int read = counts[static_cast<std::size_t>(stream)];
        if (mContext->streams[stream]->discard != AVDISCARD_ALL && listed > 0 &&
            read < static_cast<unsigned int>(listed)) {
            mRun.fail(ZR::CM::kResultFileReadFailed,
                      "the media ends early: track " + std::to_string(i + 1) + " has " +
                          std::to_string(read) + " of its " + std::to_string(listed) + " frames");
            return;
        }
    }
}

}  // namespace cmcomponents
