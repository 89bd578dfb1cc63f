// The entry point of the wav.exporter module.
#include "wav.exporter/WavExporter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RWavExporter;
}
