// The entry point of the rtp.exporter module.
#include "rtp.exporter/RTPExporter.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RRTPExporter;
}
