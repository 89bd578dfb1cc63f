// The entry point of the vp9.encoder module.
#include "vp9.encoder/Vp9Encoder.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RAvEncoder(cmcomponents::vp9EncoderSpec());
}
