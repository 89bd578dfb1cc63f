#include <cm/CMNetworkLog.h>

#include <cm/CMSNMPTrap.h>
#include <cm/CMSysConf.h>
#include <zrbase/string_with_format.h>

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace ZR {
namespace CM {

namespace {

constexpr int kDefaultPort = 6677;
constexpr int kDefaultSNMPPort = 162;
constexpr int kOff = 8;

constexpr const char* kTrapOid = "1.3.6.1.4.1.15263.1.2.127";
constexpr const char* kTextOid = "1.3.6.1.4.1.15263.1.1.126";
constexpr const char* kPriorityOid = "1.3.6.1.4.1.15263.1.1.127";
constexpr const char* kCategoryOid = "1.3.6.1.4.1.15263.1.1.128";

// Reads a threshold key into the class's threshold and tells whether it switches the
// destination on.
bool readThreshold(std::atomic<int>& threshold, const char* key) {
    const int value = sys_conf::instance().get_int(key, kOff);
    threshold.store(value, std::memory_order_relaxed);
    return isLogPriority(value);
}

bool isSet(const char* key) {
    return !sys_conf::instance().get_value(key, "").empty();
}

// The bytes of a message on a UDP or TCP socket: its text and the terminating zero.
int wireLength(const char* message) {
    return static_cast<int>(std::strlen(message) + 1);
}

}  // namespace

// UDP

RPtr<RUDPLogInterface> RUDPLogInterface::mDefault;
std::atomic<int> RUDPLogInterface::mPriority{kOff};

RUDPLogInterface* RUDPLogInterface::getDefault() {
    if (readThreshold(mPriority, "common.logging.udp-priority") &&
        isSet("common.logging.udp-host") && !mDefault) {
        mDefault = new RUDPLogInterface();
    }
    return mDefault.addr();
}

RUDPLogInterface::RUDPLogInterface()
    : mSocket(sys_conf::instance().get_value("common.logging.udp-host", "").c_str(),
              sys_conf::instance().get_int("common.loggin.udp-port", kDefaultPort),
              RSocket::kDatagram, RSocket::kIPv4) {
    mSocket.connect();
}

int RUDPLogInterface::log(int priority, int, const char* message) {
    if (priority > getPriority()) {
        return 0;
    }
    mSocket.write(message, wireLength(message));
    return 0;
}

// TCP

RPtr<RTCPLogInterface> RTCPLogInterface::mDefault;
std::atomic<int> RTCPLogInterface::mPriority{kOff};
std::atomic<int> RTCPLogInterface::mStallLimit{RTCPLogInterface::kDefaultStallLimitMs};

void RTCPLogInterface::setStallLimit(int milliseconds) {
    const int limit = milliseconds > 0 ? milliseconds : kDefaultStallLimitMs;
    mStallLimit.store(limit, std::memory_order_relaxed);
    if (mDefault) {
        mDefault->mSocket.setSendTimeout(limit);
    }
}

RTCPLogInterface* RTCPLogInterface::getDefault(const char*) {
    // Existing configurations switch TCP logging on through the UDP host.
    if (readThreshold(mPriority, "common.logging.tcp-priority") &&
        isSet("common.logging.udp-host") && !mDefault) {
        mDefault = new RTCPLogInterface();
    }
    return mDefault.addr();
}

RTCPLogInterface::RTCPLogInterface()
    : mSocket(sys_conf::instance().get_value("common.logging.tcp-host", "").c_str(),
              sys_conf::instance().get_int("common.loggin.tcp-port", kDefaultPort),
              RSocket::kStream, RSocket::kIPv4) {
    // The send time-out bounds each wait for room in the socket's buffer, not a whole
    // message: a peer that takes some data within it keeps the connection.
    mSocket.setSendTimeout(mStallLimit.load(std::memory_order_relaxed));
    mSocket.connect();
}

int RTCPLogInterface::log(int priority, int, const char* message) {
    if (priority > getPriority() || !mSocket.isConnected()) {
        return 0;
    }
    // send() goes on after every partial write until the whole message is out. It fails
    // when the peer has gone (the socket then counts as unconnected) or when a wait saw no
    // room made for the whole stall limit; other failures are ignored, as every result is.
    if (mSocket.send(message, wireLength(message)) == -1 &&
        (errno == EAGAIN || errno == EWOULDBLOCK)) {
        mDropReport = zrbase::string_with_format(
            "TCP log peer %s:%d took no data for %d ms and was dropped", mSocket.getHost(),
            mSocket.getPort(), mSocket.getSendTimeout());
        mSocket.close();
    }
    return 0;
}

std::string RTCPLogInterface::takeDropReport() {
    return std::exchange(mDropReport, std::string());
}

// Syslog

RPtr<RSyslogLogInterface> RSyslogLogInterface::mDefault;
std::atomic<int> RSyslogLogInterface::mPriority{kOff};

RSyslogLogInterface* RSyslogLogInterface::getDefault(const char* identifier) {
    if (readThreshold(mPriority, "common.logging.syslog-priority") && !mDefault) {
        mDefault = new RSyslogLogInterface(identifier);
    }
    return mDefault.addr();
}

RSyslogLogInterface::RSyslogLogInterface(const char* identifier)
    : mIdentifier(identifier ? identifier : "PLAIVA") {
    const int configured = sys_conf::instance().get_int("common.logging.syslog-facility", 0);
    // local0 for 0. Settings 1 to 7 land beyond the standard facilities; existing
    // configurations rely on this mapping, so it stays.
    const int facility = configured >= 0 && configured <= 7 ? (configured + 1) * 128 : 128;
    openlog(mIdentifier.c_str(), LOG_PID | LOG_CONS, facility);
}

RSyslogLogInterface::~RSyslogLogInterface() {
    closelog();
}

std::string RSyslogLogInterface::safeFormat(const char* message) {
    std::string format;
    for (const char* p = message; *p; ++p) {
        format.push_back(*p);
        if (*p != '%') {
            continue;
        }
        if (p[1] == '%' || p[1] == 'm') {
            format.push_back(*++p);
        } else {
            format.push_back('%');
        }
    }
    return format;
}

int RSyslogLogInterface::log(int priority, int, const char* message) {
    if (priority > getPriority()) {
        return 0;
    }
    // Most messages have no '%' and are their own format.
    if (!std::strchr(message, '%')) {
        syslog(priority, "%s", message);
        return 0;
    }
    const std::string format = safeFormat(message);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    syslog(priority, format.c_str());  // asks for no arguments, see safeFormat()
#pragma GCC diagnostic pop
    return 0;
}

// SNMP

RPtr<RSNMPLogInterface> RSNMPLogInterface::mDefault;
std::atomic<int> RSNMPLogInterface::mPriority{kOff};

RSNMPLogInterface* RSNMPLogInterface::getDefault() {
    const bool on = sys_conf::instance().get_bool("%snmp-traps", false);
    if (readThreshold(mPriority, "common.logging.snmp-priority") && on &&
        isSet("common.logging.snmp-host") && !mDefault) {
        mDefault = new RSNMPLogInterface();
    }
    return mDefault.addr();
}

RSNMPLogInterface::RSNMPLogInterface()
    : mSocket(sys_conf::instance().get_value("common.logging.snmp-host", "").c_str(),
              sys_conf::instance().get_int("common.logging.snmp-port", kDefaultSNMPPort),
              RSocket::kDatagram, RSocket::kIPv4),
      mCommunity(
          sys_conf::instance().get_value("common.logging.snmp-community", "public").c_str()) {
    mSocket.connect();
}

namespace {

void addLogBindings(RSNMPTrap& trap, int priority, int category, const char* text) {
    trap.setInt(kPriorityOid, priority);
    trap.setInt(kCategoryOid, category);
    trap.setOctString(kTextOid, text);
}

// Whether a trap with the first length bytes of text fits in one message.
bool fits(RSNMPTrap& trap, int priority, int category, const std::string& text, size_t length,
          const char* community) {
    addLogBindings(trap, priority, category, text.substr(0, length).c_str());
    const bool fit = trap.encodeTrap(kTrapOid, community);
    trap.reset();
    return fit;
}

}  // namespace

int RSNMPLogInterface::log(int priority, int category, const char* text) {
    if (priority > getPriority()) {
        return 0;
    }
    const RPtr<RSNMPTrap> trap(new RSNMPTrap());
    addLogBindings(*trap, priority, category, text);
    // 0 only when the trap did not fit; a failed send is not reported, like every other.
    if (trap->sendTrap(kTrapOid, mCommunity.c_str(), mSocket) != 0) {
        return 0;
    }
    // Too long for one trap: send the longest beginning of the text that fits. A longer
    // beginning never fits where a shorter one does not, so halving the range between a
    // length that fits (low, at worst the empty text) and one that does not (high) finds
    // it in a few tries. With a community too long for any trap nothing is sent.
    const std::string whole(text);
    size_t low = 0;
    size_t high = whole.size();
    while (high - low > 1) {
        const size_t middle = low + (high - low) / 2;
        if (fits(*trap, priority, category, whole, middle, mCommunity.c_str())) {
            low = middle;
        } else {
            high = middle;
        }
    }
    addLogBindings(*trap, priority, category, whole.substr(0, low).c_str());
    trap->sendTrap(kTrapOid, mCommunity.c_str(), mSocket);
    return 0;
}

}  // namespace CM
}  // namespace ZR
