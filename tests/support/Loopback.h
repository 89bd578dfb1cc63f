// Servers on 127.0.0.1 for socket tests.
#ifndef CM_TESTS_SUPPORT_LOOPBACK_H
#define CM_TESTS_SUPPORT_LOOPBACK_H

#include <string>
#include <vector>

namespace cmtest {

// A socket bound to a port of 127.0.0.1 that the kernel picks, stored in *port:
// listening for SOCK_STREAM, ready to receive for SOCK_DGRAM. The caller closes it.
int loopbackServer(int socketType, int* port);

// count datagram sockets bound to consecutive ports of 127.0.0.1 (an RTP sender's ports
// for several streams), the first port stored in *port. The ports lie below the kernel's
// ephemeral range, so the caller may close them and give their numbers to another process.
// The caller closes them.
std::vector<int> loopbackDatagramPorts(int count, int* port);

// Every datagram (or chunk of a stream) already waiting on fd, without blocking.
std::vector<std::string> receiveWaiting(int fd);

}  // namespace cmtest

#endif
