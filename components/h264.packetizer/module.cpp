// The entry point of the h264.packetizer module.
#include "h264.packetizer/H264Packetizer.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::RH264Packetizer;
}
