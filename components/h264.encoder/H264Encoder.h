// h264.encoder: encodes planar pictures (I420, Y42B, Y444) into H.264 ("avc1") with
// libx264 (av/AvEncoder.h says how frames and descriptions look). The private data holds
// the parameter sets in Annex B form, as do the frames.
//
// Settings:
//   "crf"      constant quality, 0 (lossless) to 51; libx264's default is 23
//   "preset"   ultrafast, superfast, veryfast, faster, fast, medium (default), slow, slower,
//              veryslow or placebo
//   "profile"  baseline, main, high, high10, high422 or high444; it must fit the input
//   "tune"     film, animation, grain, stillimage, psnr, ssim, fastdecode or zerolatency;
//              zerolatency puts out each picture as soon as it is in, without B-frames
//   "bitrate"  bits per second, 1000 to 1000000000: average bit rate instead of quality
//   "keyint"   the most frames from one key frame to the next, 1 to 100000
//   "threads"  0 (default: as many as libx264 finds useful) to 64
#ifndef CM_COMPONENTS_H264ENCODER_H
#define CM_COMPONENTS_H264ENCODER_H

#include "av/AvEncoder.h"

namespace cmcomponents {

const EncoderSpec& h264EncoderSpec();

}  // namespace cmcomponents

#endif
