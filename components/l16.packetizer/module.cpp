// The entry point of the l16.packetizer module.
#include "l16.packetizer/L16Packetizer.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RL16Packetizer;
}
