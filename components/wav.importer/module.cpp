// The entry point of the wav.importer module.
#include "wav.importer/WavImporter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RWavImporter;
}
