// Plug-in descriptors: each input is the one "*.plugin.xml" of a directory that a new
// registry loads against the project's plugin.dtd, after which every identifier it
// registered is looked up. Nothing is created, so no shared object is ever loaded.
#include <zrcore/plugins.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// A temporary directory holding the descriptor each input overwrites.
struct Fixture {
    std::string directory;

    Fixture() {
        char pattern[] = "/tmp/plugin_descriptor_fuzz.XXXXXX";
        if (!mkdtemp(pattern)) {
            std::abort();
        }
        directory = pattern;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Fixture fixture;
    const std::string path = fixture.directory + "/fuzz.plugin.xml";
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) {
        std::abort();
    }
    zrcore::plugins registry(CM_SOURCE_DIR "/data");
    const std::size_t added = registry.load_plugins(fixture.directory);
    const std::vector<std::string> ids = registry.find_plugins(".*");
    if (ids.size() != added) {
        std::abort();
    }
    return 0;
}
