#include "support/Loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

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

std::vector<int> loopbackDatagramPorts(int count, int* port) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::vector<int> fds{loopbackServer(SOCK_DGRAM, port)};
        for (int i = 1; i < count && *port + i <= 65535; ++i) {
            const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            address.sin_port = htons(static_cast<uint16_t>(*port + i));
            if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
                ::close(fd);
                break;
            }
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
