// The entry point of the y4m.importer module.
#include "y4m.importer/Y4MImporter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RY4MImporter;
}
