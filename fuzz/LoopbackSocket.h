// A socket of the fuzz harnesses' own loopback servers and receivers, bound to a port of a
// 127.0.0.0/8 address that the system picks. A harness that cannot have one cannot run,
// so failing to make it ends the process.
#ifndef CM_FUZZ_LOOPBACKSOCKET_H
#define CM_FUZZ_LOOPBACKSOCKET_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>

// SOCK_STREAM sockets listen, SOCK_DGRAM ones are ready to receive; the port goes to *port.
inline int loopbackSocket(int type, int* port, const char* address = "127.0.0.1") {
    const int fd = ::socket(AF_INET, type, 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    socklen_t length = sizeof name;
    if (fd == -1 || ::inet_pton(AF_INET, address, &name.sin_addr) != 1 ||
        ::bind(fd, reinterpret_cast<sockaddr*>(&name), length) != 0 ||
        (type == SOCK_STREAM && ::listen(fd, 16) != 0) ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&name), &length) != 0) {
        std::perror("fuzz harness: loopback socket");
        std::abort();
    }
    *port = ntohs(name.sin_port);
    return fd;
}

#endif
