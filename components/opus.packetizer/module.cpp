// The entry point of the opus.packetizer module.
#include "opus.packetizer/OpusPacketizer.h"

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new cmcomponents::ROpusPacketizer;
}
