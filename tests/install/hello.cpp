// A program outside the tree: it must build from the installed headers and libraries alone.
#include <cm/cm.h>

#include <cstdio>
#include <cstring>
#include <string>

// With the installed default configuration as argument, the plug-in directory it names
// must hold the HTTP reader.
bool findsInstalledReader(const char* configuration) {
    std::string root = configuration;
    root.erase(root.rfind('/') + 1);
    if (!ZR::CM::sys_conf::instance().load_file(configuration, root.c_str())) {
        std::fprintf(stderr, "cannot load %s\n", configuration);
        return false;
    }
    const auto stream = ZR::CM::RStream::getStream(ZR::RURI("http://127.0.0.1:9/a.mov"), 0, 0);
    return stream && stream->getType() == 6;
}

int main(int argc, char** argv) {
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
    if (argc > 1 && !findsInstalledReader(argv[1])) {
        std::fprintf(stderr, "no HTTP reader plug-in through %s\n", argv[1]);
        return 1;
    }
    std::printf("ok: %s\n", message);
    return 0;
}
