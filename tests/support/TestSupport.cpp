#include "support/TestSupport.h"

#include <cm/CMSysConf.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
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

AddressSpaceLimit::AddressSpaceLimit(std::size_t headroom) {
    if (getrlimit(RLIMIT_AS, &mSaved) != 0) {
        throw std::runtime_error("getrlimit failed");
    }
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    if (pages == 0) {
        throw std::runtime_error("cannot read /proc/self/statm");
    }
    rlimit limited = mSaved;
    limited.rlim_cur = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) + headroom;
    if (setrlimit(RLIMIT_AS, &limited) != 0) {
        throw std::runtime_error("setrlimit failed");
    }
}

AddressSpaceLimit::~AddressSpaceLimit() {
    setrlimit(RLIMIT_AS, &mSaved);
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

std::string findProgram(const std::string& name) {
    std::stringstream directories(std::string(std::getenv("PATH") ? std::getenv("PATH") : "") +
                                  ":/usr/sbin:/usr/local/sbin:/sbin");
    for (std::string directory; std::getline(directories, directory, ':');) {
        const std::string candidate = directory + "/" + name;
        if (!directory.empty() && access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return std::string();
}

int LogRecorder::log(int priority, int, const char* message) {
    if (std::strlen(message) < mMaxLength) {
        lines.push_back(std::to_string(priority) + " " + message);
    }
    return 0;
}

void configureFileLog(const std::string& directory, const char* name, int priority, int size,
                      int files) {
    ZR::CM::sys_conf& conf = ZR::CM::sys_conf::instance();
    conf.set_value("common.logging.filelog-path", directory.c_str());
    conf.set_value("common.logging.filelog-name", name);
    conf.set_int("common.logging.filelog-priority", priority);
    conf.set_int("common.logging.filelog-filesize", size);
    conf.set_int("common.logging.filelog-num-rotation", files);
}

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void stopProcess(pid_t* pid, int signal) {
    if (*pid <= 0) {
        return;
    }
    kill(*pid, signal);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (waitpid(*pid, nullptr, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(*pid, SIGKILL);
            waitpid(*pid, nullptr, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    *pid = -1;
}

}  // namespace cmtest

// Read by the sanitizer runtimes at start-up: an allocation that fails under
// AddressSpaceLimit returns null, as it does without sanitizers.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
