// The entry point of the aac.encoder module.
#include "aac.encoder/AacEncoder.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RAvEncoder(cmcomponents::aacEncoderSpec());
}
