// Servers on 127.0.0.1 for socket tests.
#ifndef CM_TESTS_SUPPORT_LOOPBACK_H
#define CM_TESTS_SUPPORT_LOOPBACK_H

namespace cmtest {

// A socket bound to a port of 127.0.0.1 that the kernel picks, stored in *port:
// listening for SOCK_STREAM, ready to receive for SOCK_DGRAM. The caller closes it.
int loopbackServer(int socketType, int* port);

}  // namespace cmtest

#endif
