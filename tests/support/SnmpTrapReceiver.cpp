#include "support/SnmpTrapReceiver.h"

#include "support/Loopback.h"

#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace cmtest {

namespace {

// Each trap is one line: "TRAP <security>|<name> = <value>\t<name> = <value>...".
constexpr const char* kFormat = "TRAP %P|%v\\n";
constexpr const char* kReady = "NET-SNMP version";

ReceivedTrap parseTrap(const std::string& line) {
    ReceivedTrap trap;
    const auto bar = line.find('|');
    trap.security = line.substr(5, bar - 5);
    std::istringstream fields(line.substr(bar + 1));
    for (std::string field; std::getline(fields, field, '\t');) {
        const auto equals = field.find(" = ");
        if (equals != std::string::npos) {
            trap.bindings.emplace_back(field.substr(0, equals), field.substr(equals + 3));
        }
    }
    return trap;
}

}  // namespace

SnmpTrapReceiver::SnmpTrapReceiver() : mLog(mDir.file("traps.log")) {
    const std::string binary = findProgram("snmptrapd");
    if (binary.empty()) {
        throw std::runtime_error(
            "snmptrapd is not installed (scripts/install-deps.sh installs it)");
    }
    std::ofstream(mDir.file("snmptrapd.conf")) << "authCommunity log public\n"
                                                  "disableAuthorization yes\n";
    // The free port is found by binding and closing a socket; another process may take it
    // before snmptrapd does, so a failed start is tried again on another port.
    for (int attempt = 0; attempt < 5; ++attempt) {
        if (start(binary)) {
            return;
        }
    }
    throw std::runtime_error("snmptrapd did not start: " + readText(mLog));
}

SnmpTrapReceiver::~SnmpTrapReceiver() {
    stop();
}

bool SnmpTrapReceiver::start(const std::string& binary) {
    const int probe = loopbackServer(SOCK_DGRAM, &mPort);
    close(probe);
    const std::string address = "udp:127.0.0.1:" + std::to_string(mPort);
    const std::string conf = mDir.file("snmptrapd.conf");
    const std::string persistent = "SNMP_PERSISTENT_DIR=" + mDir.file("persist");
    std::vector<std::string> args = {binary, "-f",  "-Lf", mLog, "-C", "-c",    conf,   "-m",
                                     "",     "-On", "-n",  "-X", "-F", kFormat, address};
    std::vector<char*> argv;
    for (auto& a : args) {
        argv.push_back(&a[0]);
    }
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (char** e = environ; *e; ++e) {
        envp.push_back(*e);
    }
    envp.push_back(const_cast<char*>(persistent.c_str()));
    envp.push_back(nullptr);
    std::remove(mLog.c_str());
    if (posix_spawn(&mPid, binary.c_str(), nullptr, nullptr, argv.data(), envp.data()) != 0) {
        mPid = -1;
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        if (readText(mLog).find(kReady) != std::string::npos) {
            return true;
        }
        int status;
        if (waitpid(mPid, &status, WNOHANG) == mPid) {
            mPid = -1;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    stop();
    return false;
}

void SnmpTrapReceiver::stop() {
    stopProcess(&mPid, SIGTERM);
}

std::vector<ReceivedTrap> SnmpTrapReceiver::traps() const {
    std::vector<ReceivedTrap> found;
    std::istringstream lines(readText(mLog));
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("TRAP ", 0) == 0 && line.find('|') != std::string::npos) {
            found.push_back(parseTrap(line));
        }
    }
    return found;
}

std::vector<ReceivedTrap> SnmpTrapReceiver::waitForTraps(size_t count, int timeoutMs) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::vector<ReceivedTrap> found = traps();
    while (found.size() < count && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        found = traps();
    }
    return found;
}

}  // namespace cmtest
