// opus.encoder: encodes "lpcm" audio of 8, 16 or 24 bits into Opus ("Opus") with libopus
// (av/AvEncoder.h says how frames and descriptions look), in frames of 20 ms with the
// OpusHead as private data. Opus runs at 8000, 12000, 16000, 24000 or 48000 Hz; other
// rates become the next of those above (48000 above that).
//
// Settings:
//   "bitrate"      bits per second, 6000 to 510000; libopus picks one for the channels
//   "complexity"   0 to 10 (default 10): effort spent for quality
//   "application"  voip, audio (default) or lowdelay
//   "vbr"          off, on (default) or constrained
#ifndef CM_COMPONENTS_OPUSENCODER_H
#define CM_COMPONENTS_OPUSENCODER_H

#include "av/AvEncoder.h"

namespace cmcomponents {

const EncoderSpec& opusEncoderSpec();

}  // namespace cmcomponents

#endif
