// The entry point of the h265.encoder module.
#include "h265.encoder/H265Encoder.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RAvEncoder(cmcomponents::h265EncoderSpec());
}
