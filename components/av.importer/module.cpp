// The entry point of the av.importer module.
#include "av.importer/AvImporter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RAvImporter;
}
