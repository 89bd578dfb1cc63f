// The log destinations beyond the file: a UDP peer (one datagram per message), a TCP peer
// (the messages as one stream), the system log, and an SNMP trap receiver (one SNMPv2c trap
// per message).
//
// Each class has one default instance, created by the first getDefault() that finds the
// destination switched on in the configuration and kept until the process exits; later
// configuration changes do not reconfigure it. The priority threshold, shared by the class,
// is read again on every getDefault(). A message goes out only when its priority number is
// at most the threshold; thresholds outside 0..7 leave the destination off.
//
// Sending never reports failure: log() always returns 0, and sockets never raise SIGPIPE.
// Like every destination these are called by the logger with its mutex held, so a slow
// TCP peer holds up every logging thread; getDefault() must run before threads log.
#ifndef CM_CMNETWORKLOG_H
#define CM_CMNETWORKLOG_H

#include <cm/CMLogger.h>
#include <zr/CBuffer.h>
#include <zr/RPtr.h>
#include <zr/RSocket.h>

#include <atomic>
#include <string>

namespace ZR {
namespace CM {

// Datagrams of the message text and its terminating zero to "common.logging.udp-host",
// port "common.loggin.udp-port" (default 6677), threshold "common.logging.udp-priority".
class RUDPLogInterface : public RLogInterfaceP {
public:
    static RUDPLogInterface* getDefault();
    static int getPriority() noexcept { return mPriority.load(std::memory_order_relaxed); }

    // Connects a datagram socket to the configured host and port.
    RUDPLogInterface();
    int log(int priority, int time, const char* message) override;

private:
    RSocket mSocket;

    static RPtr<RUDPLogInterface> mDefault;
    static std::atomic<int> mPriority;
};

// The message texts with their terminating zeros over one connection to
// "common.logging.tcp-host", port "common.loggin.tcp-port" (default 6677), threshold
// "common.logging.tcp-priority". The destination is switched on by a non-empty
// "common.logging.udp-host", the UDP key, as existing configurations expect.
//
// Each message goes out whole, however slowly the peer takes it: a peer that pauses holds
// up the logger but loses nothing. Only a peer that takes no data at all for the stall
// limit (30 s unless setStallLimit() says otherwise) is dropped, since it would otherwise
// hold every logging thread for ever: the connection is closed (a message cut by it is not
// finished), later messages are discarded, and the logger reports the drop through its
// other destinations. A peer that closes the connection gets nothing more either.
class RTCPLogInterface : public RLogInterfaceP {
public:
    static constexpr int kDefaultStallLimitMs = 30000;

    // name is the logger's name, which TCP messages do not carry.
    static RTCPLogInterface* getDefault(const char* name);
    static int getPriority() noexcept { return mPriority.load(std::memory_order_relaxed); }
    // Milliseconds a peer may take no data before it is dropped (0 or less: the default),
    // for the default destination now and for destinations made later. For start-up (and
    // tests), before threads log.
    static void setStallLimit(int milliseconds);

    // Connects a stream socket to the configured host and port.
    RTCPLogInterface();
    int log(int priority, int time, const char* message) override;

    bool isConnected() const noexcept { return mSocket.isConnected(); }
    // The text that reports a peer log() has dropped since the last call, or empty. The
    // logger passes it on to its other destinations.
    std::string takeDropReport();

private:
    RSocket mSocket;
    std::string mDropReport;

    static RPtr<RTCPLogInterface> mDefault;
    static std::atomic<int> mPriority;
    static std::atomic<int> mStallLimit;
};

// The system log, threshold "common.logging.syslog-priority". The facility is
// (f + 1) * 128 for "common.logging.syslog-facility" f in 0..7 (local0 for 0), else 128.
//
// The message is syslog's format: "%%" gives one '%' and "%m" the text of errno, as in any
// syslog format. Every other '%' is written as it stands, since there are no arguments for
// a conversion to read.
class RSyslogLogInterface : public RLogInterfaceP {
public:
    // identifier labels every line; null gives "PLAIVA".
    static RSyslogLogInterface* getDefault(const char* identifier);
    static int getPriority() noexcept { return mPriority.load(std::memory_order_relaxed); }

    // Opens the system log with the identifier, the process id and the console fallback.
    explicit RSyslogLogInterface(const char* identifier);
    ~RSyslogLogInterface() override;
    int log(int priority, int time, const char* message) override;

    const char* getIdentifier() const noexcept { return mIdentifier.c_str(); }
    // The message as a format that asks for no arguments: every '%' that does not start
    // "%%" or "%m" is doubled.
    static std::string safeFormat(const char* message);

private:
    // openlog() keeps the pointer, so the text lives as long as the destination.
    std::string mIdentifier;

    static RPtr<RSyslogLogInterface> mDefault;
    static std::atomic<int> mPriority;
};

// One SNMPv2c trap (trap OID 1.3.6.1.4.1.15263.1.2.127) per message to
// "common.logging.snmp-host", port "common.logging.snmp-port" (default 162), community
// "common.logging.snmp-community" (default "public"), threshold
// "common.logging.snmp-priority"; only when "%snmp-traps" is true. The bindings are the
// text (….126), the category (….128) and the priority (….127) under 1.3.6.1.4.1.15263.1.1.
// The logger's second argument, the time, is what travels as the category. A text too long
// for one trap is cut to the longest beginning that fits.
class RSNMPLogInterface : public RLogInterfaceP {
public:
    static RSNMPLogInterface* getDefault();
    static int getPriority() noexcept { return mPriority.load(std::memory_order_relaxed); }

    // Reads the community and connects a datagram socket to the configured receiver.
    RSNMPLogInterface();
    int log(int priority, int category, const char* text) override;

private:
    RSocket mSocket;
    CString mCommunity;

    static RPtr<RSNMPLogInterface> mDefault;
    static std::atomic<int> mPriority;
};

}  // namespace CM
}  // namespace ZR

#endif
