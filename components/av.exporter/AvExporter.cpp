#include "av.exporter/AvExporter.h"

#include "av/AvCodecs.h"
#include "av/AvLibrary.h"
#include "common/StreamIO.h"

#include <cm/CMComponentStatus.h>

#include <algorithm>
#include <cctype>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RFrame;

namespace cmcomponents {

namespace {

struct ContainerName {
    const char* extension;
    const char* muxer;
};

constexpr ContainerName kContainers[] = {
    {"mp4", "mp4"},      {"m4v", "mp4"},      {"m4a", "mp4"},   {"mov", "mov"},
    {"mkv", "matroska"}, {"mka", "matroska"}, {"webm", "webm"}, {"ts", "mpegts"},
    {"m2ts", "mpegts"},  {"mts", "mpegts"},
};

std::string extensionOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return "";
    }
    std::string extension = path.substr(dot + 1);
    for (char& c : extension) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return extension;
}

std::string nameOr(const char* name) {
    return name ? name : "";
}

// The clock a track counts in when its description names none.
AVRational fallbackClock(const CodedFormat& format) {
    if (format.isAudio() && format.sampleRate > 0) {
        return AVRational{1, static_cast<int>(format.sampleRate)};
    }
    return AVRational{1, 90000};
}

// Matroska times an Opus block from its first decoded sample, the encoder's delay (the
// track's CodecDelay) included, where the frames here are timed from their first sample
// played. This FFmpeg's muxer writes the CodecDelay but does not add it to the times;
// the first block's time would then be negative, and the muxer would move every other
// track late by the delay instead. So the exporter adds it: the seconds to add to the
// times of such a track, 0 for any other.
double matroskaCodecDelay(const std::string& muxer, const CodedFormat& format,
                          unsigned int initialPadding) {
    const bool matroska = muxer == "matroska" || muxer == "webm";
    return matroska && format.codec == ZR::fourcc("Opus") ? initialPadding / 48000.0 : 0.0;
}

}  // namespace

const char* RAvExporter::muxerForExtension(const std::string& extension) {
    for (const ContainerName& name : kContainers) {
        if (extension == name.extension) {
            return name.muxer;
        }
    }
    return nullptr;
}

RAvExporter::RAvExporter()
    : mSettings("av exporter",
                {{"container", SettingSpec::Kind::kChoice, 0, 0, "mp4 mov matroska webm mpegts",
                  SettingSpec::Target::kComponent, nullptr, nullptr}}) {
    initializeLibav();
}

int RAvExporter::init(std::vector<ZR::CM::RQueue*>& inputs, RPtr<ZR::CM::RStream> stream) {
    mRun.clear();
    mRun.setPhase(CComponentStatus::kInitialized);
    return RExporter::init(inputs, std::move(stream));
}

int RAvExporter::configure(ZR::CM::RExporterConfiguration& configuration) {
    std::string why;
    const int result = mSettings.configure(configuration, why);
    if (result != ZR::CM::kResultOK) {
        mRun.fail(result, why);
        return result;
    }
    mRun.setPhase(CComponentStatus::kConfigured);
    return result;
}

bool RAvExporter::step(int result, const std::string& why) {
    if (result != ZR::CM::kResultOK) {
        mRun.fail(result, why);
    }
    return result == ZR::CM::kResultOK;
}

void RAvExporter::close() noexcept {
    mContext.reset();
    mIO.reset();
    mPacket.reset();
    mTracks.clear();
    mEarlyBytes = 0;
    mStarted = false;
}

int RAvExporter::runloop(zrbase::object_refcount*) {
    mRun.setPhase(CComponentStatus::kWorking);
    close();
    mTracks.resize(static_cast<std::size_t>(mReaderCount));
    mPacket.reset(av_packet_alloc());
    if (!mStream || mReaderCount == 0) {
        step(ZR::CM::kResultComponentInitFailed, "the exporter has no stream or input");
    } else if (const int opened = openIfClosed(*mStream); opened != ZR::CM::kResultOK) {
        step(opened, std::string("cannot open ") + mStream->getURI().c_str());
    } else if (!mPacket) {
        step(ZR::CM::kResultUnspecified, "out of memory");
    }
    bool aborted = false;
    {
        // Every input is read to its end, also after a failure, so that nothing upstream
        // waits on a full queue.
        CInputPumps pumps(std::vector<ZR::CM::RQFrameReader*>(mReaders, mReaders + mReaderCount));
        CInputPumps::Arrival arrival;
        while (pumps.next(arrival)) {
            if (!mRun.failed()) {
                take(arrival);
            }
        }
        aborted = pumps.aborted();
    }
    if (aborted) {
        checkpoint();  // ends the run
    }
    std::string why;
    if (!mRun.failed() && !mStarted) {
        step(begin(why), why);  // every input ended without a frame: an empty file
    }
    if (!mRun.failed()) {
        step(finish(why), why);
    }
    if (mStream && mStream->close() != 0 && !mRun.failed()) {
        step(ZR::CM::kResultFileWriteFailed, "closing the file failed");
    }
    close();
    mRun.complete();
    return mRun.failed() ? -1 : 0;
}

bool RAvExporter::take(CInputPumps::Arrival& arrival) {
    Track& track = mTracks[arrival.input];
    const std::string input = "input " + std::to_string(arrival.input + 1);
    if (arrival.first) {
        if (!arrival.description || !track.format.setFromDescription(*arrival.description)) {
            return step(ZR::CM::kResultNoValidTracks,
                        input + (arrival.description ? " is not coded audio or video"
                                                     : " came without a description"));
        }
        track.described = true;
    }
    std::string why;
    if (!mStarted) {
        if (arrival.frame) {
            mEarlyBytes += arrival.frame->getSize();
            if (mEarlyBytes > kMaxEarlyBytes) {
                return step(ZR::CM::kResultNoValidTracks,
                            "an input has not shown its description while the others sent " +
                                std::to_string(kMaxEarlyBytes >> 20) + " MiB");
            }
            track.early.push_back(arrival.frame);
        }
        const bool ready =
            std::all_of(mTracks.begin(), mTracks.end(), [](const Track& t) { return t.described; });
        return !ready || step(begin(why), why);
    }
    return !arrival.frame || step(write(track, *arrival.frame, why), why);
}

int RAvExporter::begin(std::string& why) {
    mStarted = true;
    const std::string setting = mSettings.get("container");
    const std::string extension = extensionOf(mStream->getURI().c_str());
    const std::string muxer = setting.empty() ? nameOr(muxerForExtension(extension)) : setting;
    if (muxer.empty()) {
        why = "no container for \"" + extension + "\" files (mp4, m4v, m4a, mov, mkv, mka, webm, " +
              "ts, m2ts, mts)";
        return ZR::CM::kResultNoExporter;
    }
    AVFormatContext* context = nullptr;
    const int error = avformat_alloc_output_context2(&context, nullptr, muxer.c_str(), nullptr);
    mContext.reset(context);
    mIO.reset(new CAvStreamIO(mStream, CAvStreamIO::Mode::kWrite));
    if (error < 0 || !mIO->context()) {
        why = "cannot make the " + muxer + " muxer: " + errorText(error);
        return ZR::CM::kResultUnspecified;
    }
    context->pb = mIO->context();
    for (std::size_t i = 0; i < mTracks.size(); ++i) {
        const int result = addStream(mTracks[i], "input " + std::to_string(i + 1), why);
        if (result != ZR::CM::kResultOK) {
            return result;
        }
    }
    if (const int result = writeHeader(muxer, why); result != ZR::CM::kResultOK) {
        return result;
    }
    for (Track& track : mTracks) {
        for (const RPtr<const RFrame>& frame : track.early) {
            if (const int result = write(track, *frame, why); result != ZR::CM::kResultOK) {
                return result;
            }
        }
        track.early.clear();
    }
    return ZR::CM::kResultOK;
}

int RAvExporter::addStream(Track& track, const std::string& input, std::string& why) {
    const AVCodecID codec = codecOfFormat(track.format);
    if (codec == AV_CODEC_ID_NONE ||
        avformat_query_codec(mContext->oformat, codec, FF_COMPLIANCE_NORMAL) == 0) {
        why = input + ": " + mContext->oformat->name + " does not carry \"" +
              fourccText(track.format.codec) + "\"";
        return ZR::CM::kResultNoValidTracks;
    }
    track.stream = avformat_new_stream(mContext.get(), nullptr);
    if (!track.stream || fillParameters(track.format, *track.stream->codecpar) < 0) {
        why = input + ": out of memory";
        return ZR::CM::kResultUnspecified;
    }
    // An audio encoder's delay, as the first frame's trimming says; muxers write it where
    // their container keeps it (Matroska's CodecDelay, for one).
    if (track.format.isAudio() && !track.early.empty()) {
        unsigned int start = 0;
        unsigned int end = 0;
        trimmingOf(*track.early.front(), start, end);
        track.stream->codecpar->initial_padding = static_cast<int>(start);
        track.delay = matroskaCodecDelay(mContext->oformat->name, track.format, start);
    }
    track.stream->time_base = track.format.timeBase.isValid() ? toRational(track.format.timeBase)
                                                              : fallbackClock(track.format);
    if (track.format.frameRate > 0.0) {
        track.stream->avg_frame_rate = av_d2q(track.format.frameRate, 1001000);
    }
    return ZR::CM::kResultOK;
}

int RAvExporter::writeHeader(const std::string& muxer, std::string& why) {
    AVDictionary* options = nullptr;
    // MP4 and MOV go back to their start to write the index, unless fragmented.
    const bool quickTime = muxer == "mp4" || muxer == "mov";
    if (quickTime && !(mIO->context()->seekable & AVIO_SEEKABLE_NORMAL)) {
        av_dict_set(&options, "movflags", "frag_keyframe+empty_moov", 0);
    }
    const int error = avformat_write_header(mContext.get(), &options);
    av_dict_free(&options);
    if (error < 0) {
        why = "the " + muxer + " muxer refused the tracks: " + errorText(error);
        return mIO->failed() ? ZR::CM::kResultFileWriteFailed : ZR::CM::kResultNoValidTracks;
    }
    return ZR::CM::kResultOK;
}

int RAvExporter::write(Track& track, const RFrame& frame, std::string& why) {
    if (frame.type() != track.format.media || frame.getDataFormat() != track.format.codec) {
        why = "a frame that is not \"" + fourccText(track.format.codec) + "\" on a track of it";
        return ZR::CM::kResultNoValidTracks;
    }
    const AVRational clock = track.stream->time_base;
    AVPacket& packet = *mPacket;
    // Not reference counted: the muxer copies what it keeps.
    packet.data = const_cast<std::uint8_t*>(frame.getData());
    packet.size = static_cast<int>(frame.getSize());
    packet.stream_index = track.stream->index;
    packet.dts = ticksOf(frame.getAuxTime() + track.delay, clock);
    packet.pts = ticksOf(frame.getStartTime() + track.delay, clock);
    // A coarser clock than the source's can make two decode times one; muxers want them
    // to go up.
    if (track.lastDts != AV_NOPTS_VALUE && packet.dts <= track.lastDts) {
        packet.dts = track.lastDts + 1;
    }
    packet.pts = std::max(packet.pts, packet.dts);
    track.lastDts = packet.dts;
    packet.duration = ticksOf(frame.getDuration(), clock);
    int error = writePacketMarks(frame, packet);
    if (error >= 0) {
        error = av_interleaved_write_frame(mContext.get(), &packet);
    }
    av_packet_unref(&packet);
    if (error < 0) {
        why = "writing a frame failed: " + errorText(error);
        return writeFailure();
    }
    mRun.addFrame(frame.getSize());
    return ZR::CM::kResultOK;
}

int RAvExporter::finish(std::string& why) {
    const int error = av_write_trailer(mContext.get());
    if (error < 0 || mIO->failed()) {
        why = "completing the file failed: " + errorText(error < 0 ? error : AVERROR(EIO));
        return writeFailure();
    }
    return ZR::CM::kResultOK;
}

int RAvExporter::writeFailure() const {
    return mIO && mIO->failed() ? ZR::CM::kResultFileWriteFailed : ZR::CM::kResultUnspecified;
}

}  // namespace cmcomponents
