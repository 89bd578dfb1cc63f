// A component module that needs a shared library the loader cannot find.
#include <cm/CMComponent.h>

extern "C" int cmTestAbsentValue();

extern "C" ZR::CM::RComponent* getComponentInstance() {
    cmTestAbsentValue();
    return nullptr;
}
