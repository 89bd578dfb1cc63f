// The entry point of the av.decoder module.
#include "av.decoder/AvDecoder.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RAvDecoder;
}
