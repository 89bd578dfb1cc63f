#include "support/Faults.h"

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>

namespace cmtest {

namespace {

// A mount namespace of the test process's own, so that a tmpfs left mounted by a test that
// dies goes away with the process. Without one the mount is made where the process stands
// and unmounted by the destructor.
void enterPrivateMountNamespace() {
    static const bool entered = unshare(CLONE_NEWNS) == 0 &&
                                mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    (void)entered;
}

}  // namespace

FullDisk::FullDisk(Kind kind, std::size_t bytes) : mKind(kind), mBytes(bytes) {
    if (kind == Kind::kTmpfs) {
        enterPrivateMountNamespace();
        const std::string options = "size=" + std::to_string(bytes) + ",mode=0777";
        mMounted = mount("tmpfs", mDir.path().c_str(), "tmpfs", 0, options.c_str()) == 0;
        if (mMounted) {
            return;
        }
        mKind = Kind::kFileSizeLimit;
    }
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &ignore, &mSavedAction);
    getrlimit(RLIMIT_FSIZE, &mSavedLimit);
    rlimit limited = mSavedLimit;
    limited.rlim_cur = bytes;
    if (setrlimit(RLIMIT_FSIZE, &limited) != 0) {
        throw std::runtime_error("setrlimit(RLIMIT_FSIZE) failed");
    }
    mLimited = true;
}

void FullDisk::makeRoom() {
    if (mMounted) {
        mBytes *= 4;
        const std::string options = "size=" + std::to_string(mBytes);
        if (mount("tmpfs", mDir.path().c_str(), "tmpfs", MS_REMOUNT, options.c_str()) != 0) {
            throw std::runtime_error("cannot grow the tmpfs");
        }
    }
    liftLimit();
}

void FullDisk::liftLimit() noexcept {
    if (mLimited) {
        setrlimit(RLIMIT_FSIZE, &mSavedLimit);
        sigaction(SIGXFSZ, &mSavedAction, nullptr);
        mLimited = false;
    }
}

FullDisk::~FullDisk() {
    liftLimit();
    if (mMounted) {
        umount2(mDir.path().c_str(), MNT_DETACH);
    }
}

std::vector<FullDisk::Kind> fullDiskKinds() {
    return {FullDisk::Kind::kTmpfs, FullDisk::Kind::kFileSizeLimit};
}

std::string runUnprivileged(const std::function<std::string()>& body) {
    int channel[2];
    if (pipe(channel) != 0) {
        return "pipe failed";
    }
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        std::string report;
        if (setgroups(0, nullptr) != 0 || setgid(kUnprivilegedId) != 0 ||
            setuid(kUnprivilegedId) != 0) {
            report = std::string("cannot drop privileges: ") + std::strerror(errno);
        } else {
            report = body();
        }
        const ssize_t written = write(channel[1], report.data(), report.size());
        _exit(written == static_cast<ssize_t>(report.size()) ? 0 : 1);
    }
    close(channel[1]);
    std::string report;
    char buffer[512];
    for (ssize_t n; (n = read(channel[0], buffer, sizeof buffer)) > 0;) {
        report.append(buffer, static_cast<std::size_t>(n));
    }
    close(channel[0]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        return "fork or wait failed";
    }
    if (WIFSIGNALED(status)) {
        return report + "[child killed by signal " + std::to_string(WTERMSIG(status)) + "]";
    }
    if (WEXITSTATUS(status) != 0) {
        return report + "[child exited with " + std::to_string(WEXITSTATUS(status)) + "]";
    }
    return report;
}

void configureUtcFileLog(const std::string& directory, int files, int maxSize) {
    setenv("TZ", "UTC", 1);
    tzset();
    configureFileLog(directory, "app.log", 7, maxSize, files);
}

}  // namespace cmtest
