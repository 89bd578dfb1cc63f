#include <cm/CMLogger.h>

#include <cm/CMFileLog.h>
#include <cm/CMNetworkLog.h>

#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <exception>
#include <mutex>
#include <string>

namespace ZR {
namespace CM {

namespace {

constexpr int kFormatBufferSize = 2048;

long nowSeconds() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<long>(now.tv_sec);
}

// Tells the system log that the file log is missing, since the file cannot say so itself.
void reportFileLogFailure() {
    char host[256];
    if (gethostname(host, sizeof host) != 0) {
        host[0] = '\0';
    }
    host[sizeof host - 1] = '\0';  // a name that filled the buffer comes without its NUL
    syslog(kLogCritical, "ENGINE %s-%u ERROR 'Failed to create filelog interface'", host,
           static_cast<unsigned>(getpid()));
}

}  // namespace

RPtr<RLogger> RLogger::mDefault;

RLogInterfaceP::~RLogInterfaceP() = default;

RLogger::RLogger(const char* name)
    : mSyslog(RSyslogLogInterface::getDefault(name)),
      mFile(RFileLogInterface::getDefault()),
      mTCP(RTCPLogInterface::getDefault(name)),
      mUDP(RUDPLogInterface::getDefault()),
      mSNMP(RSNMPLogInterface::getDefault()) {
    getStartTime();
    if (!mFile) {
        return;
    }
    try {
        mFile->init();
    } catch (const std::exception&) {
        reportFileLogFailure();
    }
}

RLogger::~RLogger() = default;

RLogger* RLogger::getDefault(const char* name) {
    if (!mDefault) {
        mDefault = new RLogger(name);
    }
    return mDefault.addr();
}

RLogger* RLogger::getDefault() {
    return getDefault(nullptr);
}

long RLogger::getStartTime() {
    static const long start = nowSeconds();
    return start;
}

int RLogger::forward(int priority, int time, const char* message) {
    const std::lock_guard<CMutex> lock(mMutex);
    fanOutLocked(priority, time, message, nullptr);
    if (mTCP) {
        // A TCP peer dropped while this message went out cannot tell of it itself.
        const std::string report = mTCP->takeDropReport();
        if (!report.empty()) {
            fanOutLocked(kLogError, time, report.c_str(), mTCP.addr());
        }
    }
    return 0;
}

void RLogger::fanOutLocked(int priority, int time, const char* message,
                           const RLogInterfaceP* except) {
    RLogInterfaceP* const destinations[] = {mSyslog.addr(), mFile.addr(), mTCP.addr(), mUDP.addr(),
                                            mSNMP.addr()};
    for (RLogInterfaceP* destination : destinations) {
        if (destination && destination != except) {
            destination->log(priority, time, message);
        }
    }
    for (const RPtr<RLogInterfaceP>& destination : mExtra) {
        destination->log(priority, time, message);
    }
}

void RLogger::addInterface(RLogInterfaceP* destination) {
    const std::lock_guard<CMutex> lock(mMutex);
    if (destination) {
        mExtra.emplace_back(destination);
    }
}

int RStderrLogInterface::log(int priority, int, const char* message) {
    if (priority > mThreshold) {
        return 0;
    }
    std::fprintf(stderr, "[%d] %s\n", priority, message);
    return 0;
}

int RLogger::log(int priority, int time, const RString& message) {
    return forward(priority, time, message.c_str());
}

int RLogger::log(int priority, const RString& message) {
    return forward(priority, static_cast<int>(std::time(nullptr)), message.c_str());
}

int RLogger::vlogf(int priority, int time, const char* format, va_list args) {
    char text[kFormatBufferSize];
    std::vsnprintf(text, sizeof text, format, args);
    return forward(priority, time, text);
}

int RLogger::logf(int priority, int time, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = vlogf(priority, time, format, args);
    va_end(args);
    return result;
}

int RLogger::logf(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = vlogf(priority, static_cast<int>(std::time(nullptr)), format, args);
    va_end(args);
    return result;
}

}  // namespace CM
}  // namespace ZR
