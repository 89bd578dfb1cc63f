// Helpers shared by the benchmark programs.
#ifndef CM_BENCH_BENCHSUPPORT_H
#define CM_BENCH_BENCHSUPPORT_H

#include <cstdlib>
#include <filesystem>
#include <string>

namespace cmbench {

// A fresh directory under $TMPDIR (default /tmp) for the files a benchmark writes; it is
// removed with everything in it when the object goes, at exit for the usual static one.
class TempDir {
public:
    TempDir() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/cm-bench-XXXXXX";
        if (!::mkdtemp(&pattern[0])) {
            std::abort();
        }
        mPath = pattern;
    }
    ~TempDir() { std::filesystem::remove_all(mPath); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return mPath; }
    // The subdirectory name, made if it is not there yet.
    std::string directory(const std::string& name) const {
        const std::string path = mPath + "/" + name;
        std::filesystem::create_directory(path);
        return path;
    }

private:
    std::string mPath;
};

}  // namespace cmbench

#endif
