// The entry point of the rtsp.importer module.
#include "rtsp.importer/RtspImporter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RRtspImporter;
}
