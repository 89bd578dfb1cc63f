// The Y4M importer on whole files, imported through the importer's queue to its end
// (ImportRun.h).
#include "ImportRun.h"

#include <y4m.importer/Y4MImporter.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ZR::RPtr<ZR::CM::RImporterConfiguration> configuration(new ZR::CM::RImporterConfiguration);
    ZR::RPtr<cmcomponents::RY4MImporter> importer(new cmcomponents::RY4MImporter);
    fuzz::importWhole(*importer, *configuration, data, size);
    return 0;
}
