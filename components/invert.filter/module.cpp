// The entry point of the invert.filter module.
#include "invert.filter/InvertFilter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RInvertFilter;
}
