// aac.encoder: encodes "lpcm" audio of 8, 16 or 24 bits into AAC ("mp4a") with FFmpeg's
// own AAC encoder (av/AvEncoder.h says how frames and descriptions look): raw access
// units with the AudioSpecificConfig as private data. Rates AAC does not have become the
// next one it has (up to 96000).
//
// Settings:
//   "bitrate"  bits per second, 8000 to 576000; FFmpeg's default is 128000 per 2 channels
//   "profile"  aac_low (default), aac_main or aac_ltp
#ifndef CM_COMPONENTS_AACENCODER_H
#define CM_COMPONENTS_AACENCODER_H

#include "av/AvEncoder.h"

namespace cmcomponents {

const EncoderSpec& aacEncoderSpec();

}  // namespace cmcomponents

#endif
