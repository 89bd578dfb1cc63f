// A shared object that is no component module: it exports a function, but not the entry
// point getComponentInstance.
extern "C" int notAComponent() {
    return 1;
}
