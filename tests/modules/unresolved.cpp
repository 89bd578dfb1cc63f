// A component module that calls a function no library defines. Opened lazily it loads, and
// fails only when the call is made; opened with every symbol bound at once it does not load.
#include <cm/CMComponent.h>

extern "C" int cmTestUndefinedFunction();

extern "C" ZR::CM::RComponent* getComponentInstance() {
    cmTestUndefinedFunction();
    return nullptr;
}
