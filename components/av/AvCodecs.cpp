#include "av/AvCodecs.h"

#include "common/PlanarPicture.h"

#include <algorithm>
#include <cstring>

namespace cmcomponents {

namespace {

struct CodecName {
    AVCodecID codec;
    unsigned int fourcc;
    unsigned int bytesPerSample;  // linear PCM only
};

constexpr unsigned int kLinearPCM = ZR::fourcc("lpcm");

constexpr CodecName kCodecs[] = {
    {AV_CODEC_ID_H264, ZR::fourcc("avc1"), 0},
    {AV_CODEC_ID_HEVC, ZR::fourcc("hvc1"), 0},
    {AV_CODEC_ID_VP9, ZR::fourcc("vp09"), 0},
    {AV_CODEC_ID_VP8, ZR::fourcc("vp08"), 0},
    {AV_CODEC_ID_AV1, ZR::fourcc("av01"), 0},
    {AV_CODEC_ID_MPEG4, ZR::fourcc("mp4v"), 0},
    {AV_CODEC_ID_MPEG2VIDEO, ZR::fourcc("mp2v"), 0},
    {AV_CODEC_ID_MJPEG, ZR::fourcc("jpeg"), 0},
    {AV_CODEC_ID_THEORA, ZR::fourcc("theo"), 0},
    {AV_CODEC_ID_AAC, ZR::fourcc("mp4a"), 0},
    {AV_CODEC_ID_OPUS, ZR::fourcc("Opus"), 0},
    {AV_CODEC_ID_MP3, ZR::fourcc("mp3 "), 0},
    {AV_CODEC_ID_MP2, ZR::fourcc("mp2 "), 0},
    {AV_CODEC_ID_FLAC, ZR::fourcc("fLaC"), 0},
    {AV_CODEC_ID_VORBIS, ZR::fourcc("vorb"), 0},
    {AV_CODEC_ID_AC3, ZR::fourcc("ac-3"), 0},
    {AV_CODEC_ID_EAC3, ZR::fourcc("ec-3"), 0},
    {AV_CODEC_ID_ALAC, ZR::fourcc("alac"), 0},
    {AV_CODEC_ID_PCM_U8, kLinearPCM, 1},
    {AV_CODEC_ID_PCM_S16LE, kLinearPCM, 2},
    {AV_CODEC_ID_PCM_S24LE, kLinearPCM, 3},
    {AV_CODEC_ID_PCM_S32LE, ZR::fourcc("in32"), 4},
    {AV_CODEC_ID_PCM_F32LE, ZR::fourcc("fl32"), 4},
    {AV_CODEC_ID_PCM_F64LE, ZR::fourcc("fl64"), 8},
};

const CodecName* byCodec(AVCodecID codec) {
    for (const CodecName& name : kCodecs) {
        if (name.codec == codec) {
            return &name;
        }
    }
    return nullptr;
}

// A rational as a double, 0 for an unknown (zero) one.
double valueOf(AVRational rational) {
    return rational.num > 0 && rational.den > 0 ? av_q2d(rational) : 0.0;
}

unsigned int bytesOfBits(int bits) {
    return bits > 0 ? static_cast<unsigned int>(bits + 7) / 8 : 0;
}

}  // namespace

unsigned int fourccOfCodec(AVCodecID codec) {
    const CodecName* name = byCodec(codec);
    return name ? name->fourcc : 0;
}

AVCodecID codecOfFormat(const CodedFormat& format) {
    for (const CodecName& name : kCodecs) {
        if (name.fourcc == format.codec &&
            (name.fourcc != kLinearPCM || name.bytesPerSample == format.bytesPerSample)) {
            return name.codec;
        }
    }
    return AV_CODEC_ID_NONE;
}

bool describeParameters(const AVCodecParameters& parameters, AVRational timeBase,
                        AVRational frameRate, CodedFormat& format) {
    format = CodedFormat();
    const CodecName* name = byCodec(parameters.codec_id);
    if (!name) {
        return false;
    }
    format.codec = name->fourcc;
    format.timeBase = toTimeBase(timeBase);
    if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
        format.media = ZR::fourcc("vide");
        format.width = static_cast<unsigned int>(std::max(parameters.width, 0));
        format.height = static_cast<unsigned int>(std::max(parameters.height, 0));
        format.frameRate = valueOf(frameRate);
        format.pixelAspect = static_cast<float>(valueOf(parameters.sample_aspect_ratio));
    } else if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
        format.media = ZR::fourcc("audi");
        format.channels = static_cast<unsigned int>(std::max(parameters.ch_layout.nb_channels, 0));
        format.sampleRate = static_cast<unsigned int>(std::max(parameters.sample_rate, 0));
        format.channelMask = speakerMaskOf(parameters.ch_layout);
        format.bytesPerSample = name->bytesPerSample ? name->bytesPerSample
                                                     : bytesOfBits(parameters.bits_per_raw_sample);
    } else {
        return false;
    }
    if (parameters.profile != FF_PROFILE_UNKNOWN) {
        format.profile = parameters.profile;
    }
    if (parameters.level != FF_LEVEL_UNKNOWN) {
        format.level = parameters.level;
    }
    if (format.isVideo() && parameters.format != AV_PIX_FMT_NONE) {
        const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(parameters.format));
        format.pixelFormat = name ? name : "";
    }
    if (parameters.extradata && parameters.extradata_size > 0) {
        format.privateData.assign(parameters.extradata,
                                  parameters.extradata + parameters.extradata_size);
    }
    return true;
}

int fillParameters(const CodedFormat& format, AVCodecParameters& parameters) {
    parameters.codec_id = codecOfFormat(format);
    parameters.codec_tag = 0;
    if (format.isVideo()) {
        parameters.codec_type = AVMEDIA_TYPE_VIDEO;
        parameters.width = static_cast<int>(format.width);
        parameters.height = static_cast<int>(format.height);
        if (format.pixelAspect > 0.0f) {
            parameters.sample_aspect_ratio = av_d2q(format.pixelAspect, 65535);
        }
        if (!format.pixelFormat.empty()) {
            parameters.format = av_get_pix_fmt(format.pixelFormat.c_str());
        }
    } else {
        parameters.codec_type = AVMEDIA_TYPE_AUDIO;
        parameters.sample_rate = static_cast<int>(format.sampleRate);
        av_channel_layout_uninit(&parameters.ch_layout);
        channelLayoutFor(format.channels, format.channelMask, parameters.ch_layout);
        if (format.bytesPerSample > 0) {
            parameters.bits_per_raw_sample = static_cast<int>(format.bytesPerSample * 8);
        }
    }
    parameters.profile =
        format.profile != CodedFormat::kUnknownProfile ? format.profile : FF_PROFILE_UNKNOWN;
    parameters.level = format.level != CodedFormat::kUnknownLevel ? format.level : FF_LEVEL_UNKNOWN;
    av_freep(&parameters.extradata);
    parameters.extradata_size = 0;
    if (!format.privateData.empty()) {
        const std::size_t size = format.privateData.size();
        parameters.extradata =
            static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
        if (!parameters.extradata) {
            return AVERROR(ENOMEM);
        }
        std::memcpy(parameters.extradata, format.privateData.data(), size);
        parameters.extradata_size = static_cast<int>(size);
    }
    return 0;
}

AVPixelFormat pixelFormatOfLayout(unsigned int layout) {
    switch (layout) {
        case kPlanar420:
            return AV_PIX_FMT_YUV420P;
        case kPlanar422:
            return AV_PIX_FMT_YUV422P;
        case kPlanar444:
            return AV_PIX_FMT_YUV444P;
        default:
            return AV_PIX_FMT_NONE;
    }
}

void channelLayoutFor(unsigned int channels, unsigned int mask, AVChannelLayout& layout) {
    if (mask != 0 && static_cast<unsigned int>(__builtin_popcount(mask)) == channels &&
        av_channel_layout_from_mask(&layout, mask) == 0) {
        return;
    }
    av_channel_layout_default(&layout, static_cast<int>(channels));
}

unsigned int speakerMaskOf(const AVChannelLayout& layout) {
    if (layout.order != AV_CHANNEL_ORDER_NATIVE || layout.nb_channels <= 2 ||
        layout.u.mask > 0xFFFFFFFFu) {
        return 0;
    }
    return static_cast<unsigned int>(layout.u.mask);
}

void readPacketMarks(const AVPacket& packet, CodedFrameTimes& times) {
    times.key = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    times.discard = (packet.flags & AV_PKT_FLAG_DISCARD) != 0;
    std::size_t size = 0;
    const std::uint8_t* skip = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
    if (skip && size >= 8) {
        times.trimStart = AV_RL32(skip);
        times.trimEnd = AV_RL32(skip + 4);
    }
}

int writePacketMarks(const ZR::CM::RFrame& frame, AVPacket& packet) {
    packet.flags =
        (isKeyFrame(frame) ? AV_PKT_FLAG_KEY : 0) | (isDiscarded(frame) ? AV_PKT_FLAG_DISCARD : 0);
    unsigned int start = 0;
    unsigned int end = 0;
    trimmingOf(frame, start, end);
    if (start == 0 && end == 0) {
        return 0;
    }
    // Two 32-bit counts, a reason for each end (none given), as FFmpeg lays them out.
    std::uint8_t* skip = av_packet_new_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, 10);
    if (!skip) {
        return AVERROR(ENOMEM);
    }
    AV_WL32(skip, start);
    AV_WL32(skip + 4, end);
    skip[8] = 0;
    skip[9] = 0;
    return 0;
}

double secondsOf(std::int64_t stamp, AVRational base, double fallback) {
    return stamp == AV_NOPTS_VALUE ? fallback : static_cast<double>(stamp) * av_q2d(base);
}

}  // namespace cmcomponents
