// RLogger, the single entry point for diagnostic messages, and RLogInterfaceP, the contract
// of the destinations it forwards to.
//
// The logger owns up to five destinations: the system log, a rotating file, a TCP peer, a
// UDP peer and an SNMP trap receiver. Each destination decides from the system
// configuration whether it exists at all and filters messages by a priority threshold of
// its own, on syslog's scale (0 emergency, the most important, to 7 debug).
//
// The default logger is created by the first getDefault(), which must run on the main
// thread after the configuration file has been loaded and before other threads log: the
// creation takes no lock. After that any thread may log; the logger's mutex is held for
// the whole fan-out of one message, so destinations see one message at a time and need no
// locks of their own.
#ifndef CM_CMLOGGER_H
#define CM_CMLOGGER_H

#include <zr/CBuffer.h>
#include <zr/CMutex.h>
#include <zr/RPtr.h>
#include <zrbase/object_refcount.h>

#include <vector>

namespace ZR {
namespace CM {

// Syslog's priorities, the scale every destination filters on.
enum LogPriority {
    kLogEmergency = 0,
    kLogAlert = 1,
    kLogCritical = 2,
    kLogError = 3,
    kLogWarning = 4,
    kLogNotice = 5,
    kLogInfo = 6,
    kLogDebug = 7,
};

// Whether a configured threshold switches a destination on: 0 to 7.
constexpr bool isLogPriority(int value) {
    return value >= kLogEmergency && value <= kLogDebug;
}

class RLogInterfaceP : public zrbase::object_refcount {
public:
    ~RLogInterfaceP() override;
    // Delivers one message unless priority is above the destination's threshold. time is
    // in seconds since the epoch. Called by the logger with its mutex held.
    virtual int log(int priority, int time, const char* message) = 0;
};

class RSyslogLogInterface;
class RFileLogInterface;
class RTCPLogInterface;
class RUDPLogInterface;
class RSNMPLogInterface;

// Writes every message of a priority up to its threshold to standard error, one line each.
class RStderrLogInterface : public RLogInterfaceP {
public:
    explicit RStderrLogInterface(int threshold = kLogDebug) : mThreshold(threshold) {}
    int log(int priority, int time, const char* message) override;

private:
    int mThreshold;
};

class RLogger : public zrbase::object_refcount {
public:
    // Obtains every destination the configuration switches on; name labels the system
    // log (null for the default label). A file log whose file cannot be opened is reported
    // to the system log and stays silent.
    explicit RLogger(const char* name);
    ~RLogger() override;
    RLogger(const RLogger&) = delete;
    RLogger& operator=(const RLogger&) = delete;

    // The logger, created on first use with the name of that call; later names are
    // ignored.
    static RLogger* getDefault(const char* name);
    static RLogger* getDefault();

    // Forwards to every destination in the order system log, file, TCP, UDP, SNMP. Always
    // 0: the destinations' results are ignored. When the TCP destination drops a peer that
    // stalled, the other destinations receive a line of priority kLogError saying so.
    int log(int priority, int time, const RString& message);
    int log(int priority, const RString& message);  // at the current time
    // Formats into 2,048 bytes, so the message is cut to 2,047 characters.
    int logf(int priority, int time, const char* format, ...) __attribute__((format(printf, 4, 5)));
    int logf(int priority, const char* format, ...) __attribute__((format(printf, 3, 4)));

    // Adds a destination of the application's own (a console, a test) after the five: it
    // sees every message and filters by itself. For start-up, before other threads log.
    void addInterface(RLogInterfaceP* destination);

    // The second from which SNMP traps count their uptime: when the first logger was
    // created, or when the first trap asked for it if that came earlier.
    static long getStartTime();

private:
    int forward(int priority, int time, const char* message);
    // Hands the message to every destination but `except` (may be null).
    void fanOutLocked(int priority, int time, const char* message, const RLogInterfaceP* except);
    int vlogf(int priority, int time, const char* format, va_list args)
        __attribute__((format(printf, 4, 0)));

    // Held for the whole fan-out of a message: it serialises every destination's log(),
    // which is what guards their state (file size and rotation, sockets). The destination
    // pointers themselves are set by the constructor and never change.
    CMutex mMutex;
    RPtr<RSyslogLogInterface> mSyslog;
    RPtr<RFileLogInterface> mFile;
    RPtr<RTCPLogInterface> mTCP;
    RPtr<RUDPLogInterface> mUDP;
    RPtr<RSNMPLogInterface> mSNMP;
    std::vector<RPtr<RLogInterfaceP>> mExtra;  // guarded by mMutex

    static RPtr<RLogger> mDefault;
};

}  // namespace CM
}  // namespace ZR

#endif
