// The entry point of the y4m.exporter module.
#include "y4m.exporter/Y4MExporter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RY4MExporter;
}
