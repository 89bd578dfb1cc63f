// A component module whose entry point makes no component.
#include <cm/CMComponent.h>

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return nullptr;
}
