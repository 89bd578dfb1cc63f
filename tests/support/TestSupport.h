// Helpers shared by the tests: an object that reports its own destruction, a temporary
// directory removed with its contents, a way to run a function on several threads at once,
// a way to make large allocations fail, and a log destination that records what it gets.
#ifndef CM_TESTS_SUPPORT_TESTSUPPORT_H
#define CM_TESTS_SUPPORT_TESTSUPPORT_H

#include <cm/CMLogger.h>
#include <zrbase/object_refcount.h>

#include <sys/resource.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace cmtest {

// A reference-counted object that counts live instances, so a test can see leaks and
// early destruction.
class Tracked : public zrbase::object_refcount {
public:
    explicit Tracked(int value = 0) : mValue(value) { live().fetch_add(1); }
    ~Tracked() override { live().fetch_sub(1); }
    int value() const { return mValue; }
    static std::atomic<int>& live();

private:
    int mValue;
};

// A fresh directory under $TMPDIR (or /tmp); removed with everything in it on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return mPath; }
    std::string file(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

// Limits the address space of the process to what it maps now plus `headroom` bytes while
// the object lives, so that a larger allocation fails the way it does when memory runs out.
// The sanitizer allocators are told to return null instead of aborting in that case.
class AddressSpaceLimit {
public:
    explicit AddressSpaceLimit(std::size_t headroom);
    ~AddressSpaceLimit();
    AddressSpaceLimit(const AddressSpaceLimit&) = delete;
    AddressSpaceLimit& operator=(const AddressSpaceLimit&) = delete;

private:
    rlimit mSaved;
};

// A log destination that keeps each message shorter than maxLength, unfiltered, as the
// line "<priority> <message>".
class LogRecorder : public ZR::CM::RLogInterfaceP {
public:
    explicit LogRecorder(std::size_t maxLength = std::string::npos) : mMaxLength(maxLength) {}
    int log(int priority, int time, const char* message) override;
    std::vector<std::string> lines;

private:
    std::size_t mMaxLength;
};

// Runs body(index) on `threads` threads started together and joins them.
void runConcurrently(int threads, const std::function<void(int)>& body);

// The path of a program on PATH or in the sbin directories (where daemons such as nginx
// and snmptrapd live); empty when there is none.
std::string findProgram(const std::string& name);

// The whole content of a file; empty when it cannot be read.
std::string readText(const std::string& path);

// Points the default file log (through sys_conf) at directory/name with the given
// priority, maximum file size and number of files.
void configureFileLog(const std::string& directory, const char* name, int priority, int size,
                      int files);

// Sends signal to the child *pid, waits up to ten seconds for it to end, kills it if it has
// not, and reaps it; *pid becomes -1. Nothing happens when *pid is not positive.
void stopProcess(pid_t* pid, int signal);

}  // namespace cmtest

#endif
