// The entry point of the gain.filter module.
#include "gain.filter/GainFilter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RGainFilter;
}
