// The system configuration loader. The first byte turns validation on (against the
// project's cm-config.dtd, copied beside the file) or off; the rest is the file. Every key
// the load produced is then read back through every typed getter.
#include <map>
#include <string>
#include <vector>

#include <cm/CMSysConf.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

void writeFile(const std::string& path, const void* bytes, std::size_t size) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file || std::fwrite(bytes, 1, size, file) != size || std::fclose(file) != 0) {
        std::abort();
    }
}

// A temporary directory holding the document type; each input becomes its cm.conf.
struct Fixture {
    std::string root;

    Fixture() {
        char pattern[] = "/tmp/sys_conf_fuzz.XXXXXX";
        if (!mkdtemp(pattern)) {
            std::abort();
        }
        root = std::string(pattern) + "/";
        std::ifstream dtd(CM_SOURCE_DIR "/data/cm-config.dtd", std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(dtd)),
                               std::istreambuf_iterator<char>());
        if (text.empty()) {
            std::abort();
        }
        writeFile(root + "cm-config.dtd", text.data(), text.size());
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Fixture fixture;
    if (size == 0) {
        return 0;
    }
    writeFile(fixture.root + "cm.conf", data + 1, size - 1);
    ZR::CM::sys_conf& conf = ZR::CM::sys_conf::instance();
    conf.clear();
    conf.set_validation(data[0] & 1);
    conf.load_file("@cm.conf", fixture.root.c_str());

    std::vector<std::string> keys;
    for (const auto& entry : conf.values()) {
        keys.push_back(entry.first);
    }
    for (const std::string& key : keys) {
        const char* name = key.c_str();
        conf.get_value(name, "");
        conf.get_int(name, 0);
        conf.get_bool(name, false);
        conf.get_float(name, 0.0f);
        conf.get_fourcc(name, "none");
        std::vector<std::string> parts;
        conf.get_array(parts, name, ';');
        conf.append_value(name, "@x");
    }
    return 0;
}
