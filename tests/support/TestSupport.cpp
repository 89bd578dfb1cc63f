#include "support/TestSupport.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <vector>

namespace cmtest {

std::atomic<int>& Tracked::live() {
    static std::atomic<int> count{0};
    return count;
}

TempDir::TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/cm-test-XXXXXX";
    if (!mkdtemp(&pattern[0])) {
        throw std::runtime_error("mkdtemp failed for " + pattern);
    }
    mPath = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

void runConcurrently(int threads, const std::function<void(int)>& body) {
    std::atomic<bool> go{false};
    std::vector<std::thread> pool;
    for (int i = 0; i < threads; ++i) {
        pool.emplace_back([&, i] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            body(i);
        });
    }
    go.store(true);
    for (auto& t : pool) {
        t.join();
    }
}

}  // namespace cmtest
