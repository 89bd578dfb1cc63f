// What a piece of code sends to the system log, caught without touching the machine's log:
// the code runs in a child process with a mount namespace of its own, where /dev is a
// fresh tmpfs and /dev/log a datagram socket that the child reads back after the code ran.
#ifndef CM_TESTS_SUPPORT_SYSLOGCAPTURE_H
#define CM_TESTS_SUPPORT_SYSLOGCAPTURE_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace cmtest {

struct SyslogCapture {
    // False when the process may not make a mount namespace (no CAP_SYS_ADMIN): nothing
    // ran.
    bool available = false;
    pid_t pid = -1;  // the child's process id, as the messages show it
    // Each datagram as syslog sent it: "<PRI>Mmm dd hh:mm:ss IDENT[PID]: TEXT", without
    // "[PID]" when the log was not opened with the process id.
    std::vector<std::string> messages;
};

// Runs body in the child; whatever body leaves in memory stays in the child.
SyslogCapture captureSyslog(const std::function<void()>& body);

// The parts of a captured message: its PRI number, the identifier and the text.
struct SyslogLine {
    int pri = -1;
    std::string ident;
    std::string text;
};
SyslogLine parseSyslog(const std::string& message);

}  // namespace cmtest

#endif
