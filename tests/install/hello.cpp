// A program outside the tree: it must build from the installed headers and libraries alone.
#include <cm/cm.h>

#include <cstdio>
#include <cstring>

int main() {
    ZR::CString text("installed");
    ZR::CData data;
    data << text << 7u;
    data.rewind();
    ZR::CString back;
    unsigned int seven = 0;
    data >> back >> seven;
    const char* message = ZR::CM::stringWithResultCode(167);
    if (back != "installed" || seven != 7 || std::strcmp(message, "file not found") != 0) {
        std::fprintf(stderr, "installed library misbehaves\n");
        return 1;
    }
    std::printf("ok: %s\n", message);
    return 0;
}
