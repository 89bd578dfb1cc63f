#include "support/SyslogCapture.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace cmtest {

namespace {

enum Status : char { kUnavailable = 'U', kCaptured = 'C' };

void writeAll(int fd, const void* data, size_t length) {
    const auto* bytes = static_cast<const char*>(data);
    while (length > 0) {
        const ssize_t put = write(fd, bytes, length);
        if (put <= 0) {
            _exit(2);
        }
        bytes += put;
        length -= static_cast<size_t>(put);
    }
}

bool readAll(int fd, void* data, size_t length) {
    auto* bytes = static_cast<char*>(data);
    while (length > 0) {
        const ssize_t got = read(fd, bytes, length);
        if (got <= 0) {
            return false;
        }
        bytes += got;
        length -= static_cast<size_t>(got);
    }
    return true;
}

// A private /dev with a log socket; -1 when this process may not have one. Mounts are
// made private first, so that nothing done here reaches the machine's namespace.
int privateLogSocket() {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/dev", "tmpfs", 0, "size=64k") != 0) {
        return -1;
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    if (fd == -1 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        return -1;
    }
    return fd;
}

[[noreturn]] void runChild(int out, const std::function<void()>& body) {
    const int log = privateLogSocket();
    if (log == -1) {
        writeAll(out, "U", 1);
        _exit(0);
    }
    body();
    writeAll(out, "C", 1);
    char datagram[4096];
    ssize_t got;
    while ((got = recv(log, datagram, sizeof datagram, MSG_DONTWAIT)) > 0) {
        const auto length = static_cast<std::uint32_t>(got);
        writeAll(out, &length, sizeof length);
        writeAll(out, datagram, length);
    }
    _exit(0);
}

}  // namespace

SyslogCapture captureSyslog(const std::function<void()>& body) {
    int channel[2];
    if (pipe(channel) != 0) {
        throw std::runtime_error("pipe failed");
    }
    SyslogCapture capture;
    capture.pid = fork();
    if (capture.pid == -1) {
        throw std::runtime_error("fork failed");
    }
    if (capture.pid == 0) {
        close(channel[0]);
        runChild(channel[1], body);
    }
    close(channel[1]);
    char status = 0;
    if (readAll(channel[0], &status, 1)) {
        capture.available = status == kCaptured;
        std::uint32_t length;
        while (readAll(channel[0], &length, sizeof length)) {
            std::string message(length, '\0');
            if (!readAll(channel[0], &message[0], length)) {
                break;
            }
            capture.messages.push_back(message);
        }
    }
    close(channel[0]);
    int exitStatus;
    waitpid(capture.pid, &exitStatus, 0);
    if (status == 0 || !WIFEXITED(exitStatus) || WEXITSTATUS(exitStatus) != 0) {
        throw std::runtime_error("the syslog capture child failed");
    }
    return capture;
}

SyslogLine parseSyslog(const std::string& message) {
    SyslogLine line;
    const auto close = message.find('>');
    if (message.empty() || message[0] != '<' || close == std::string::npos) {
        return line;
    }
    line.pri = std::atoi(message.substr(1, close - 1).c_str());
    // After the 15-character time stamp and a space comes "IDENT[PID]: TEXT", or
    // "IDENT: TEXT" when the log was not opened with the process id.
    const auto identStart = close + 1 + 16;
    const auto colon = message.find(": ", identStart);
    if (identStart > message.size() || colon == std::string::npos) {
        return line;
    }
    const std::string head = message.substr(identStart, colon - identStart);
    line.ident = head.substr(0, head.find('['));
    line.text = message.substr(colon + 2);
    return line;
}

}  // namespace cmtest
