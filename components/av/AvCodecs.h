// Between the components' coded-media form (common/CodedMedia.h) and FFmpeg's: which codec
// a FourCC names, a stream's parameters as a CodedFormat and back, and clock conversions.
//
// The FourCCs are those of CodedMedia.h. Linear PCM in FFmpeg has one codec per sample
// layout; the components name 8-bit unsigned and 16- and 24-bit signed little-endian
// samples "lpcm" and tell them apart by the description's bytes per sample.
//
// Plain functions without state; any thread.
#ifndef CM_COMPONENTS_AV_AVCODECS_H
#define CM_COMPONENTS_AV_AVCODECS_H

#include "av/AvObjects.h"
#include "common/CodedMedia.h"

#include <string>

namespace cmcomponents {

// The FourCC of a stream's codec; 0 when the components have no name for it.
unsigned int fourccOfCodec(AVCodecID codec);
// The codec a coded format names; AV_CODEC_ID_NONE when there is none ("lpcm" of a size
// other than 1, 2 or 3 bytes included).
AVCodecID codecOfFormat(const CodedFormat& format);

// A stream's parameters as a coded format, with the stream's clock and frame rate; false
// when its codec has no FourCC or it is neither audio nor video.
bool describeParameters(const AVCodecParameters& parameters, AVRational timeBase,
                        AVRational frameRate, CodedFormat& format);
// A coded format as stream parameters (codec, sizes, channels, private data); 0 or an
// FFmpeg error.
int fillParameters(const CodedFormat& format, AVCodecParameters& parameters);

// The pixel format of a planar layout of common/PlanarPicture.h ("I420", "Y42B", "Y444");
// AV_PIX_FMT_NONE for anything else.
AVPixelFormat pixelFormatOfLayout(unsigned int layout);

// The channel layout for a count of channels and a WAV speaker mask (0: the usual layout
// for that count), and the mask of a layout (0 for one or two channels in their usual
// order, and for layouts that have no mask).
void channelLayoutFor(unsigned int channels, unsigned int mask, AVChannelLayout& layout);
unsigned int speakerMaskOf(const AVChannelLayout& layout);

// A packet's marks (key frame, discard, trimming) as a coded frame carries them, and back:
// 0 or an FFmpeg error (out of memory).
void readPacketMarks(const AVPacket& packet, CodedFrameTimes& times);
int writePacketMarks(const ZR::CM::RFrame& frame, AVPacket& packet);

// Clocks.
inline AVRational toRational(const TimeBase& base) {
    return AVRational{base.num, base.den};
}
inline TimeBase toTimeBase(AVRational base) {
    return TimeBase{base.num, base.den};
}
// Seconds of a time stamp in a clock; AV_NOPTS_VALUE gives fallback.
double secondsOf(std::int64_t stamp, AVRational base, double fallback);
// The nearest whole tick of a clock for a time in seconds.
inline std::int64_t ticksOf(double seconds, AVRational base) {
    return toTimeBase(base).ticks(seconds);
}

}  // namespace cmcomponents

#endif
