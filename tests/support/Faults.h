// Real faults for the fault tests: a disk that fills up, a process that may write no
// larger files, and a scenario run by an unprivileged user (the tests run as root, for
// whom permission bits stop nothing).
#ifndef CM_TESTS_SUPPORT_FAULTS_H
#define CM_TESTS_SUPPORT_FAULTS_H

#include "support/TestSupport.h"

#include <sys/resource.h>

#include <csignal>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace cmtest {

// A directory whose files run out of room after about `bytes`. kTmpfs mounts a tmpfs of
// that size on it (writes then fail with ENOSPC); kFileSizeLimit limits the size of any
// file the process writes (RLIMIT_FSIZE, with SIGXFSZ ignored, so that writes fail with
// EFBIG). Where mounting is refused, kTmpfs falls back to the file-size limit: kind() says
// which is in force.
class FullDisk {
public:
    enum class Kind { kTmpfs, kFileSizeLimit };

    FullDisk(Kind kind, std::size_t bytes);
    ~FullDisk();
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

    Kind kind() const { return mKind; }
    const char* describe() const { return mKind == Kind::kTmpfs ? "tmpfs" : "RLIMIT_FSIZE"; }
    const std::string& path() const { return mDir.path(); }
    std::string file(const std::string& name) const { return mDir.file(name); }
    // Makes room: a tmpfs grows fourfold, a file-size limit is lifted.
    void makeRoom();

private:
    void liftLimit() noexcept;

    TempDir mDir;
    Kind mKind;
    std::size_t mBytes;
    bool mMounted = false;
    bool mLimited = false;
    rlimit mSavedLimit{};
    struct sigaction mSavedAction {};
};

// Both kinds of full disk, to run a scenario under each.
std::vector<FullDisk::Kind> fullDiskKinds();

// Runs body in a forked child that has dropped to user and group 65534 (nobody), and
// returns what body returned there: a text that describes what went wrong, empty when
// all was well. A child that dies returns a text that says how.
std::string runUnprivileged(const std::function<std::string()>& body);
// The default file log as the fault tests use it: app.log in directory, every priority,
// time stamps in UTC so that the tests can write down the lines they expect.
void configureUtcFileLog(const std::string& directory, int files, int maxSize);

// The uid and gid runUnprivileged() runs as, for handing files to it.
constexpr unsigned int kUnprivilegedId = 65534;

}  // namespace cmtest

#endif
