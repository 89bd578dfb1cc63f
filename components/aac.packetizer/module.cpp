// The entry point of the aac.packetizer module.
#include "aac.packetizer/AacPacketizer.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RAacPacketizer;
}
