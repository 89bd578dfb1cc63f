#include "av/AvEncoder.h"

#include "av/AvCodecs.h"
#include "av/AvLibrary.h"
#include "common/WavFormat.h"
#include "common/Y4MFormat.h"

#include <cm/CMComponentStatus.h>

#include <algorithm>

using ZR::RPtr;
using ZR::CM::RDescription;
using ZR::CM::RFrame;
using ZR::CM::RVideoDescription;

namespace cmcomponents {

namespace {

using Kind = SettingSpec::Kind;
using Target = SettingSpec::Target;

constexpr unsigned int kVideo = ZR::fourcc("vide");
constexpr unsigned int kAudio = ZR::fourcc("audi");
// The clock of pictures whose description has no frame rate.
constexpr AVRational kFallbackClock{1, 90000};

// own, then every row of common whose key own does not have.
std::vector<SettingSpec> merged(std::vector<SettingSpec> own,
                                const std::vector<SettingSpec>& common) {
    for (const SettingSpec& row : common) {
        const auto same = [&](const SettingSpec& mine) { return std::string(mine.key) == row.key; };
        if (std::none_of(own.begin(), own.end(), same)) {
            own.push_back(row);
        }
    }
    return own;
}

// The input's rate when the encoder takes it, else the lowest it takes above, else its
// highest.
int encoderRate(const AVCodec& encoder, int rate) {
    if (!encoder.supported_samplerates) {
        return rate;
    }
    int above = 0;
    int highest = 0;
    for (const int* r = encoder.supported_samplerates; *r != 0; ++r) {
        if (*r == rate) {
            return rate;
        }
        if (*r > rate && (above == 0 || *r < above)) {
            above = *r;
        }
        highest = std::max(highest, *r);
    }
    return above != 0 ? above : highest;
}

bool takesPixelFormat(const AVCodec& encoder, AVPixelFormat format) {
    if (!encoder.pix_fmts) {
        return true;
    }
    for (const AVPixelFormat* f = encoder.pix_fmts; *f != AV_PIX_FMT_NONE; ++f) {
        if (*f == format) {
            return true;
        }
    }
    return false;
}

AVSampleFormat inputSampleFormat(unsigned int bytes) {
    // 24-bit samples are widened to 32 bits first: FFmpeg has no packed 24-bit format.
    return bytes == 1 ? AV_SAMPLE_FMT_U8 : bytes == 2 ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32;
}

}  // namespace

std::vector<SettingSpec> videoEncoderSettings(std::vector<SettingSpec> own) {
    return merged(
        std::move(own),
        {
            {"bitrate", Kind::kInteger, 1000, 1000000000, nullptr, Target::kCodec, "b", nullptr},
            {"keyint", Kind::kInteger, 1, 100000, nullptr, Target::kCodec, "g", nullptr},
            {"threads", Kind::kInteger, 0, 64, nullptr, Target::kCodec, "threads", "0"},
        });
}

std::vector<SettingSpec> audioEncoderSettings(long long minBitrate, long long maxBitrate,
                                              std::vector<SettingSpec> own) {
    return merged(std::move(own), {{"bitrate", Kind::kInteger, minBitrate, maxBitrate, nullptr,
                                    Target::kCodec, "b", nullptr}});
}

RAvEncoder::RAvEncoder(const EncoderSpec& encoder)
    : RAvCodecStage(encoder.owner, encoder.settings), mSpec(encoder) {}

void RAvEncoder::close() {
    mCodec.reset();
    mPacket.reset();
    mFrame.reset();
    mQueue.reset();
    mConverted.reset();
    mResampler = CAvResampler();
    mWide.clear();
    mPackets = 0;
    mNextPts = AV_NOPTS_VALUE;
    mFrameDuration = 0.0;
}

int RAvEncoder::open(const RDescription& description, std::string& why) {
    mEncoder = avcodec_find_encoder_by_name(mSpec.encoder);
    if (!mEncoder) {
        why = std::string("this FFmpeg has no ") + mSpec.encoder;
        return ZR::CM::kResultNoEncoder;
    }
    mCodec.reset(avcodec_alloc_context3(mEncoder));
    mPacket.reset(av_packet_alloc());
    mFrame.reset(av_frame_alloc());
    if (!mCodec || !mPacket || !mFrame) {
        why = "out of memory";
        return ZR::CM::kResultUnspecified;
    }
    const bool video = mSpec.media == kVideo;
    int result = video ? setUpVideo(description, why) : setUpAudio(description, why);
    if (result != ZR::CM::kResultOK) {
        return result;
    }
    // Private data out of band, so that any container can carry it.
    mCodec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (mSettings.applyTo(*mCodec, why) < 0) {
        return ZR::CM::kResultComponentConfigureFailed;
    }
    const int error = avcodec_open2(mCodec.get(), mEncoder, nullptr);
    if (error < 0) {
        why = std::string("cannot open ") + mSpec.encoder + ": " + errorText(error);
        return ZR::CM::kResultComponentConfigureFailed;
    }
    if (!video && (result = prepareSamples(why)) != ZR::CM::kResultOK) {
        return result;
    }
    describeOutput(description);
    return ZR::CM::kResultOK;
}

int RAvEncoder::prepareSamples(std::string& why) {
    SampleShape in;
    in.layout = mCodec->ch_layout;
    in.format = inputSampleFormat(mInputBytes);
    in.rate = static_cast<int>(mInputRate);
    SampleShape out;
    out.layout = mCodec->ch_layout;
    out.format = mCodec->sample_fmt;
    out.rate = mCodec->sample_rate;
    mQueue.reset(av_audio_fifo_alloc(mCodec->sample_fmt, static_cast<int>(mChannels),
                                     std::max(mCodec->frame_size, 1024)));
    mConverted.reset(av_frame_alloc());
    const int error = mQueue && mConverted ? mResampler.setup(in, out) : AVERROR(ENOMEM);
    if (error < 0) {
        why = "cannot convert the samples for " + std::string(mSpec.encoder) + ": " +
              errorText(error);
        return ZR::CM::kResultUnspecified;
    }
    return ZR::CM::kResultOK;
}

void RAvEncoder::describeOutput(const RDescription& input) {
    CodedFormat output;
    output.media = mSpec.media;
    output.codec = mSpec.format;
    output.timeBase = toTimeBase(mCodec->time_base);
    if (mCodec->profile != FF_PROFILE_UNKNOWN) {
        output.profile = mCodec->profile;
    }
    if (mCodec->level != FF_LEVEL_UNKNOWN) {
        output.level = mCodec->level;
    }
    if (mSpec.media == kVideo) {
        output.width = mPicture.width;
        output.height = mPicture.height;
        output.frameRate = mCodec->framerate.num > 0 ? av_q2d(mCodec->framerate) : 0.0;
        output.pixelAspect = static_cast<const RVideoDescription&>(input).mVideoReal1;
        output.pixelFormat = av_get_pix_fmt_name(mCodec->pix_fmt);
    } else {
        output.channels = mChannels;
        output.sampleRate = static_cast<unsigned int>(mCodec->sample_rate);
        output.channelMask = speakerMaskOf(mCodec->ch_layout);
    }
    if (mCodec->extradata && mCodec->extradata_size > 0) {
        output.privateData.assign(mCodec->extradata, mCodec->extradata + mCodec->extradata_size);
    }
    describe(RPtr<const RDescription>(output.createDescription()));
}

int RAvEncoder::setUpVideo(const RDescription& description, std::string& why) {
    if (!mPicture.setFromDescription(description)) {
        why = "the input is not planar pictures (I420, Y42B or Y444)";
        return ZR::CM::kResultNoValidTracks;
    }
    const AVPixelFormat format = pixelFormatOfLayout(mPicture.chroma);
    if (!takesPixelFormat(*mEncoder, format)) {
        why = std::string(mSpec.encoder) + " does not take " + fourccText(mPicture.chroma);
        return ZR::CM::kResultNoValidTracks;
    }
    const auto& video = static_cast<const RVideoDescription&>(description);
    unsigned int numerator = 0;
    unsigned int denominator = 0;
    if (rationalFromRate(video.mFrameRate, Y4MFormat::kMaxRateDenominator, numerator,
                         denominator) &&
        numerator <= static_cast<unsigned int>(INT32_MAX)) {
        mCodec->framerate = AVRational{static_cast<int>(numerator), static_cast<int>(denominator)};
        mCodec->time_base = av_inv_q(mCodec->framerate);
        mFrameDuration = av_q2d(mCodec->time_base);
    } else {
        mCodec->time_base = kFallbackClock;
    }
    mCodec->width = static_cast<int>(mPicture.width);
    mCodec->height = static_cast<int>(mPicture.height);
    mCodec->pix_fmt = format;
    if (video.mVideoReal1 > 0.0f) {
        mCodec->sample_aspect_ratio = av_d2q(video.mVideoReal1, 65535);
    }
    mFrame->format = format;
    mFrame->width = mCodec->width;
    mFrame->height = mCodec->height;
    return ZR::CM::kResultOK;
}

int RAvEncoder::setUpAudio(const RDescription& description, std::string& why) {
    WavFormat wav;
    if (formatOf(description) != kLinearPCM || !wav.setFromDescription(description)) {
        why = "the input is not 8-, 16- or 24-bit lpcm audio of 1 to 8 channels";
        return ZR::CM::kResultNoValidTracks;
    }
    mInputBytes = wav.bytesPerSample();
    mChannels = wav.channels;
    mInputRate = wav.sampleRate;
    const int rate = encoderRate(*mEncoder, static_cast<int>(wav.sampleRate));
    mCodec->sample_rate = rate;
    mCodec->time_base = AVRational{1, rate};
    mCodec->sample_fmt = mEncoder->sample_fmts ? mEncoder->sample_fmts[0] : AV_SAMPLE_FMT_FLTP;
    av_channel_layout_uninit(&mCodec->ch_layout);
    channelLayoutFor(wav.channels, wav.channelMask, mCodec->ch_layout);
    return ZR::CM::kResultOK;
}

int RAvEncoder::code(const RFrame& frame, std::string& why) {
    return mSpec.media == kVideo ? encodePicture(frame, why) : encodeSamples(frame, why);
}

int RAvEncoder::encodePicture(const RFrame& frame, std::string& why) {
    if (frame.type() != kVideo || frame.getDataFormat() != mPicture.chroma ||
        frame.getSize() < mPicture.frameBytes()) {
        why = "a frame that is not one " + fourccText(mPicture.chroma) + " picture of " +
              std::to_string(mPicture.width) + "x" + std::to_string(mPicture.height);
        return ZR::CM::kResultNoValidTracks;
    }
    // The frame is not reference counted: the encoder copies the picture.
    av_image_fill_arrays(mFrame->data, mFrame->linesize, frame.getData(), mCodec->pix_fmt,
                         mCodec->width, mCodec->height, 1);
    std::int64_t pts = ticksOf(frame.getStartTime(), mCodec->time_base);
    // Encoders refuse times that do not go up.
    if (mNextPts != AV_NOPTS_VALUE && pts < mNextPts) {
        pts = mNextPts;
    }
    mNextPts = pts + 1;
    mFrame->pts = pts;
    const int result = send(mFrame.get(), why);
    std::fill(std::begin(mFrame->data), std::end(mFrame->data), nullptr);
    return result;
}

int RAvEncoder::encodeSamples(const RFrame& frame, std::string& why) {
    if (frame.type() != kAudio || frame.getDataFormat() != kLinearPCM) {
        why = "a frame that is not lpcm audio";
        return ZR::CM::kResultNoValidTracks;
    }
    if (mNextPts == AV_NOPTS_VALUE) {
        mNextPts = ticksOf(frame.getStartTime(), mCodec->time_base);
    }
    const unsigned int count = frame.getSize() / (mInputBytes * mChannels);
    const std::uint8_t* samples = frame.getData();
    if (mInputBytes == 3) {
        const std::size_t n = static_cast<std::size_t>(count) * mChannels;
        mWide.resize(n);
        for (std::size_t i = 0; i < n; ++i) {
            const std::uint8_t* p = samples + 3 * i;
            mWide[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(p[0]) << 8 |
                                                 static_cast<std::uint32_t>(p[1]) << 16 |
                                                 static_cast<std::uint32_t>(p[2]) << 24);
        }
        samples = reinterpret_cast<const std::uint8_t*>(mWide.data());
    }
    const int result = queueConverted(&samples, static_cast<int>(count), why);
    return result != ZR::CM::kResultOK ? result : encodeQueued(false, why);
}

int RAvEncoder::queueConverted(const std::uint8_t* const* in, int count, std::string& why) {
    const int room = mResampler.outputRoom(count);
    if (room <= 0) {
        return ZR::CM::kResultOK;
    }
    AVFrame& converted = *mConverted;
    int error = 0;
    if (!converted.data[0] || converted.nb_samples < room) {
        av_frame_unref(&converted);
        converted.format = mCodec->sample_fmt;
        converted.nb_samples = room;
        if ((error = av_channel_layout_copy(&converted.ch_layout, &mCodec->ch_layout)) < 0 ||
            (error = av_frame_get_buffer(&converted, 0)) < 0) {
            why = "out of memory";
            return ZR::CM::kResultUnspecified;
        }
    }
    const int made = in ? mResampler.convert(in, count, converted.extended_data, room)
                        : mResampler.drain(converted.extended_data, room);
    if (made < 0) {
        why = "converting the samples failed: " + errorText(made);
        return ZR::CM::kResultUnspecified;
    }
    if (av_audio_fifo_write(mQueue.get(), reinterpret_cast<void**>(converted.extended_data), made) <
        made) {
        why = "out of memory";
        return ZR::CM::kResultUnspecified;
    }
    return ZR::CM::kResultOK;
}

int RAvEncoder::encodeQueued(bool all, std::string& why) {
    const int size = mCodec->frame_size > 0 ? mCodec->frame_size : 1024;
    for (;;) {
        const int queued = av_audio_fifo_size(mQueue.get());
        if (queued == 0 || (queued < size && !all)) {
            return ZR::CM::kResultOK;
        }
        const int n = std::min(queued, size);
        // A new block each time: the encoder may still hold the last one.
        av_frame_unref(mFrame.get());
        mFrame->format = mCodec->sample_fmt;
        mFrame->sample_rate = mCodec->sample_rate;
        mFrame->nb_samples = n;
        if (av_channel_layout_copy(&mFrame->ch_layout, &mCodec->ch_layout) < 0 ||
            av_frame_get_buffer(mFrame.get(), 0) < 0) {
            why = "out of memory";
            return ZR::CM::kResultUnspecified;
        }
        av_audio_fifo_read(mQueue.get(), reinterpret_cast<void**>(mFrame->data), n);
        mFrame->pts = mNextPts;
        mNextPts += n;
        const int result = send(mFrame.get(), why);
        if (result != ZR::CM::kResultOK) {
            return result;
        }
    }
}

int RAvEncoder::finish(std::string& why) {
    if (mSpec.media == kAudio) {
        int result = queueConverted(nullptr, 0, why);
        if (result == ZR::CM::kResultOK) {
            result = encodeQueued(true, why);
        }
        if (result != ZR::CM::kResultOK) {
            return result;
        }
    }
    return send(nullptr, why);
}

int RAvEncoder::send(const AVFrame* frame, std::string& why) {
    int error = avcodec_send_frame(mCodec.get(), frame);
    if (error < 0) {
        why = "encoding failed: " + errorText(error);
        return ZR::CM::kResultUnspecified;
    }
    const AVRational clock = mCodec->time_base;
    while ((error = avcodec_receive_packet(mCodec.get(), mPacket.get())) >= 0) {
        const AVPacket& packet = *mPacket;
        CodedFrameTimes times;
        times.start = secondsOf(packet.pts, clock, 0.0);
        times.decode = secondsOf(packet.dts, clock, times.start);
        times.duration =
            packet.duration > 0 ? secondsOf(packet.duration, clock, 0.0) : mFrameDuration;
        times.index = mPackets++;
        readPacketMarks(packet, times);
        // An audio encoder's delay comes out before 0: those samples are priming, dropped
        // on decoding, as demuxers mark them.
        if (mSpec.media == kAudio && packet.pts < 0 && packet.duration > 0) {
            times.trimStart = static_cast<unsigned int>(std::min(-packet.pts, packet.duration));
            times.discard = -packet.pts >= packet.duration;
        }
        put(createCodedFrame(mSpec.media, mSpec.format, packet.data,
                             static_cast<unsigned int>(packet.size), times));
        av_packet_unref(mPacket.get());
    }
    if (error != AVERROR(EAGAIN) && error != AVERROR_EOF) {
        why = "encoding failed: " + errorText(error);
        return ZR::CM::kResultUnspecified;
    }
    return ZR::CM::kResultOK;
}

}  // namespace cmcomponents
