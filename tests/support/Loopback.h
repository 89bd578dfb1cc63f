// Servers on 127.0.0.1 for socket tests: a TCP listener or a bound UDP socket on a port
// the kernel picks, and a port on which nothing listens.
#ifndef CM_TESTS_SUPPORT_LOOPBACK_H
#define CM_TESTS_SUPPORT_LOOPBACK_H

namespace cmtest {

class LoopbackServer {
public:
    // SOCK_STREAM listens; SOCK_DGRAM is bound and ready to receive.
    explicit LoopbackServer(int socketType);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    int port() const { return mPort; }
    int fd() const { return mFd; }
    // Waits for the next connection and returns its descriptor (the caller closes it).
    int accept() const;

private:
    int mFd;
    int mPort;
};

// A loopback TCP port that had a listener a moment ago and has none now.
int closedLoopbackPort();

}  // namespace cmtest

#endif
