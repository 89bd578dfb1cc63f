// The WAV importer on whole files: the first byte picks samples-per-frame (1 to 256), the
// rest is the file, imported through the importer's queue to its end (ImportRun.h).
#include "ImportRun.h"

#include <wav.importer/WavImporter.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    ZR::RPtr<ZR::CM::RImporterConfiguration> configuration(new ZR::CM::RImporterConfiguration);
    configuration->setInt("samples-per-frame", data[0] + 1);
    ZR::RPtr<cmcomponents::RWavImporter> importer(new cmcomponents::RWavImporter);
    fuzz::importWhole(*importer, *configuration, data + 1, size - 1);
    return 0;
}
