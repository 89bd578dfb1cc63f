// The entry point of the opus.encoder module.
#include "opus.encoder/OpusEncoder.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RAvEncoder(cmcomponents::opusEncoderSpec());
}
