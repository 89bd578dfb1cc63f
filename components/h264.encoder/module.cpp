// The entry point of the h264.encoder module.
#include "h264.encoder/H264Encoder.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RAvEncoder(cmcomponents::h264EncoderSpec());
}
