// h265.encoder: encodes planar pictures (I420, Y42B, Y444) into H.265 ("hvc1") with
// libx265 (av/AvEncoder.h says how frames and descriptions look). The private data holds
// the parameter sets in Annex B form, as do the frames.
//
// Settings:
//   "crf"          constant quality, 0 to 51; libx265's default is 28
//   "preset"       ultrafast, superfast, veryfast, faster, fast, medium (default), slow,
//                  slower, veryslow or placebo
//   "profile"      main, main10, main12, main422-10, main444-8, main444-10 or
//                  mainstillpicture; it must fit the input
//   "x265-params"  libx265's own key=value list, ':'-separated; the default
//                  "log-level=error" keeps libx265's chatter off standard error
//   "bitrate", "keyint", "threads"  as for every video encoder (H264Encoder.h)
#ifndef CM_COMPONENTS_H265ENCODER_H
#define CM_COMPONENTS_H265ENCODER_H

#include "av/AvEncoder.h"

namespace cmcomponents {

const EncoderSpec& h265EncoderSpec();

}  // namespace cmcomponents

#endif
