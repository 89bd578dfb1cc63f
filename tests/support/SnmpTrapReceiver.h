// A real SNMP trap receiver for tests: snmptrapd from the system's packages, started on a
// free UDP port of 127.0.0.1 with a configuration of its own that logs every trap for the
// community "public" to a file, and stopped when the object goes.
#ifndef CM_TESTS_SUPPORT_SNMPTRAPRECEIVER_H
#define CM_TESTS_SUPPORT_SNMPTRAPRECEIVER_H

#include "support/TestSupport.h"

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace cmtest {

// One trap as the receiver decoded it.
struct ReceivedTrap {
    // snmptrapd's security text: "TRAP2, SNMP v2c, community public" for an SNMPv2c trap.
    std::string security;
    // Numeric name ".1.3.6..." and typed value ("INTEGER: 3", "STRING: \"abc\""), in the
    // order of the message.
    std::vector<std::pair<std::string, std::string>> bindings;
};

class SnmpTrapReceiver {
public:
    // Throws std::runtime_error when snmptrapd is not installed or does not start.
    SnmpTrapReceiver();
    ~SnmpTrapReceiver();
    SnmpTrapReceiver(const SnmpTrapReceiver&) = delete;
    SnmpTrapReceiver& operator=(const SnmpTrapReceiver&) = delete;

    int port() const { return mPort; }
    // The traps logged so far, once there are at least count of them or after timeoutMs.
    std::vector<ReceivedTrap> waitForTraps(size_t count, int timeoutMs) const;

private:
    bool start(const std::string& binary);
    void stop();
    std::vector<ReceivedTrap> traps() const;

    TempDir mDir;
    std::string mLog;
    pid_t mPid = -1;
    int mPort = 0;
};

}  // namespace cmtest

#endif
