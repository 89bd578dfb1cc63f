// The FFmpeg importer on whole files of any container, imported through the importer's
// queue to its end (ImportRun.h): whatever FFmpeg's demuxers make of the input, the
// importer must report it by its status, hand out only frames whose bytes are all there,
// and let go of the stream. FFmpeg's own allocations are capped (av/AvLibrary.h), so no
// input may make it ask for more than the fuzzer's limit.
#include "ImportRun.h"

#include <av.importer/AvImporter.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ZR::RPtr<ZR::CM::RImporterConfiguration> configuration(new ZR::CM::RImporterConfiguration);
    ZR::RPtr<cmcomponents::RAvImporter> importer(new cmcomponents::RAvImporter);
    fuzz::importWhole(*importer, *configuration, data, size);
    return 0;
}
