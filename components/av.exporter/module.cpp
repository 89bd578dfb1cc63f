// The entry point of the av.exporter module.
#include "av.exporter/AvExporter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RAvExporter;
}
