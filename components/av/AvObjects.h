// Owners for FFmpeg's objects: std::unique_ptr with the library's own release function,
// so that every context, packet, frame and converter the components make is let go of on
// every way out. FFmpeg's headers are included here, in C linkage, for the whole folder.
//
// The objects belong to the one thread that made them (a component's thread, or the
// application's thread before the component starts).
#ifndef CM_COMPONENTS_AV_AVOBJECTS_H
#define CM_COMPONENTS_AV_AVOBJECTS_H

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/imgutils.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <cstdint>
#include <memory>

namespace cmcomponents {

// Release functions that take the address of the pointer (and clear it).
template <typename T, void (*Release)(T**)>
struct ReleaseByAddress {
    void operator()(T* object) const noexcept { Release(&object); }
};

// Release functions that take the pointer itself.
template <typename T, void (*Release)(T*)>
struct ReleaseByValue {
    void operator()(T* object) const noexcept { Release(object); }
};

using CodecContextPtr =
    std::unique_ptr<AVCodecContext, ReleaseByAddress<AVCodecContext, avcodec_free_context>>;
using PacketPtr = std::unique_ptr<AVPacket, ReleaseByAddress<AVPacket, av_packet_free>>;
using FramePtr = std::unique_ptr<AVFrame, ReleaseByAddress<AVFrame, av_frame_free>>;
using ResamplerPtr = std::unique_ptr<SwrContext, ReleaseByAddress<SwrContext, swr_free>>;
using ScalerPtr = std::unique_ptr<SwsContext, ReleaseByValue<SwsContext, sws_freeContext>>;
using AudioFifoPtr = std::unique_ptr<AVAudioFifo, ReleaseByValue<AVAudioFifo, av_audio_fifo_free>>;
// A demuxer's context, closed with its input.
using InputContextPtr =
    std::unique_ptr<AVFormatContext, ReleaseByAddress<AVFormatContext, avformat_close_input>>;
// A muxer's context; its I/O context belongs to whoever made it.
using OutputContextPtr =
    std::unique_ptr<AVFormatContext, ReleaseByValue<AVFormatContext, avformat_free_context>>;

}  // namespace cmcomponents

#endif
