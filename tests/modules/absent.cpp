// A shared library that the needsabsent module links, and that is kept where no loader
// looks for it.
extern "C" int cmTestAbsentValue() {
    return 1;
}
