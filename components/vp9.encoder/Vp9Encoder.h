// vp9.encoder: encodes planar pictures (I420, Y42B, Y444) into VP9 ("vp09") with
// libvpx-vp9 (av/AvEncoder.h says how frames and descriptions look). By default it
// encodes for constant quality; a bit rate makes the quality a floor under that rate.
//
// Settings:
//   "crf"      quality, 0 (best) to 63; default 31
//   "bitrate"  bits per second, 0 (default: as the quality needs) to 1000000000
//   "preset"   best, good (default) or realtime: how long each picture may take
//   "speed"    -8 to 8, faster towards 8 at some cost in quality; default 4
//   "profile"  0 to 3; 4:2:2 and 4:4:4 need 1, which libvpx picks itself
//   "keyint", "threads"  as for every video encoder (H264Encoder.h)
#ifndef CM_COMPONENTS_VP9ENCODER_H
#define CM_COMPONENTS_VP9ENCODER_H

#include "av/AvEncoder.h"

namespace cmcomponents {

const EncoderSpec& vp9EncoderSpec();

}  // namespace cmcomponents

#endif
