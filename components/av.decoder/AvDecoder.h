// av.decoder: decodes coded video into planar pictures and coded audio into 16-bit linear
// PCM with FFmpeg's decoders, for every codec of common/CodedMedia.h that FFmpeg decodes.
//
// Input: frames of coded video or audio with their description (CodedMedia.h); the
// description's private data and clock set the decoder up.
// Video output: one picture per decoded picture in the layout of common/PlanarPicture.h
// chosen by the "format" setting, whatever the codec's own layout and depth (libswscale
// converts); every picture keeps the size of the first one. Its frames carry the
// presentation time and duration of the picture, numbered in presentation order.
// Audio output: interleaved 16-bit little-endian "lpcm" samples (common/WavFormat.h) at
// the rate and with the channels of the first decoded frame (libswresample converts what
// differs later), one frame per decoded frame, stamped contiguously from the first
// frame's time, each frame numbered by its first sample.
// The output's description is published with its first frame: only the decoder knows the
// real size of the pictures and rate of the samples (SBR doubles AAC's, for one). An input
// that brings no frames gets a description made from the input's numbers.
//
// Failures: an input that is not coded audio or video or whose codec FFmpeg cannot decode
// fails with kResultNoDecoder; a packet FFmpeg rejects as invalid is skipped (and logged),
// but a stream of which nothing decodes fails with kResultUnspecified, as does any other
// decoding error; more than 8 channels fail with kResultNoValidTracks.
//
// Settings:
//   "format"   the picture layout: I420 (default), Y42B or Y444
//   "threads"  decoding threads, 0 (default: as many as FFmpeg finds useful) to 64
#ifndef CM_COMPONENTS_AVDECODER_H
#define CM_COMPONENTS_AVDECODER_H

#include "av/AvCodecStage.h"
#include "av/AvObjects.h"
#include "av/AvResampler.h"
#include "common/CodedMedia.h"
#include "common/PlanarPicture.h"

namespace cmcomponents {

class RAvDecoder : public RAvCodecStage {
public:
    RAvDecoder();

    unsigned int type() const override { return ZR::fourcc("dcmp"); }

protected:
    int open(const ZR::CM::RDescription& description, std::string& why) override;
    int code(const ZR::CM::RFrame& frame, std::string& why) override;
    int finish(std::string& why) override;
    void close() override;

private:
    // Hands the packet (null: the end) to the decoder and emits every frame it gives back.
    int decode(const AVPacket* packet, std::string& why);
    int emitPicture(const AVFrame& frame, std::string& why);
    int emitSamples(const AVFrame& frame, std::string& why);
    // Puts what the converter makes of in (null: what it held back) on the output.
    int emitConverted(const AVFrame* in, std::string& why);
    // Publishes a description made from the input's numbers, when nothing was decoded.
    void describeFromInput();

    CodedFormat mInput;
    AVRational mClock{1, 1000000};  // of the input's times: its time base, else microseconds
    CodecContextPtr mCodec;
    PacketPtr mPacket;
    FramePtr mFrame;
    bool mDescribed = false;
    unsigned long long mMade = 0;     // pictures, or sample frames
    unsigned long long mSkipped = 0;  // packets the decoder rejected
    // Video.
    PlanarPicture mPicture;
    ScalerPtr mScaler;
    double mLastEnd = 0.0;  // where the last picture ended, for pictures without a time
    // Audio.
    CAvResampler mResampler;
    SampleShape mSamples;  // of the output
    double mOrigin = 0.0;  // time of the first sample
};

}  // namespace cmcomponents

#endif
