#include "support/Loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <stdexcept>

namespace cmtest {

int loopbackServer(int socketType, int* port) {
    const int fd = ::socket(AF_INET, socketType, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd == -1 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        (socketType == SOCK_STREAM && ::listen(fd, 8) != 0) ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("cannot set up a loopback server");
    }
    *port = ntohs(address.sin_port);
    return fd;
}

namespace {

// The lowest port the kernel hands out for a bind to port 0 or an unbound send.
int firstEphemeralPort() {
    std::ifstream range("/proc/sys/net/ipv4/ip_local_port_range");
    int low = 32768;
    range >> low;
    return low;
}

int bindDatagram(int port) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (fd != -1 && ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

// The ports are drawn below the kernel's ephemeral range: callers may close them and hand
// the numbers to another process, and a port from that range could meanwhile go to any
// socket of a test running beside this one.
std::vector<int> loopbackDatagramPorts(int count, int* port) {
    const int high = firstEphemeralPort() - count;
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> draw(high / 2, high - 1);
    for (int attempt = 0; attempt < 100; ++attempt) {
        *port = draw(random);
        std::vector<int> fds;
        for (int fd; static_cast<int>(fds.size()) < count &&
                     (fd = bindDatagram(*port + static_cast<int>(fds.size()))) != -1;) {
            fds.push_back(fd);
        }
        if (static_cast<int>(fds.size()) == count) {
            return fds;
        }
        for (const int fd : fds) {
            ::close(fd);
        }
    }
    throw std::runtime_error("no consecutive loopback ports are free");
}

std::vector<std::string> receiveWaiting(int fd) {
    std::vector<std::string> got;
    char buffer[4096];
    ssize_t n;
    while ((n = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT)) >= 0) {
        got.emplace_back(buffer, static_cast<size_t>(n));
    }
    return got;
}

}  // namespace cmtest
