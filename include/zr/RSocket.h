// ZR::RSocket, a client socket over IPv4: a TCP stream or a UDP datagram socket connected
// to one peer.
//
// The socket is created and its host resolved by connect(), never by the constructor.
// Writes never raise SIGPIPE: a peer that has gone away makes them return -1 with errno
// EPIPE or ECONNRESET, and the socket then counts as no longer connected. Optional
// time-outs keep read2() from waiting for ever on a silent peer and writes on one that
// takes no data. Results follow
// the system calls: a count, 0 at the end of a stream, -1 with errno set on failure.
//
// Held through ZR::RPtr. One thread at a time; the destructor closes the socket.
#ifndef ZR_RSOCKET_H
#define ZR_RSOCKET_H

#include <zr/CBuffer.h>
#include <zrbase/object_refcount.h>

namespace ZR {

class RSocket : public zrbase::object_refcount {
public:
    enum Type { kStream = 1, kDatagram = 2 };
    enum Family { kIPv4 = 2 };

    // host is a dotted address or a name; port 0 to 65535.
    RSocket(const char* host, int port, int type, int family);
    ~RSocket() override;
    RSocket(const RSocket&) = delete;
    RSocket& operator=(const RSocket&) = delete;

    // Resolves the host and connects to the first of its addresses that accepts; a socket
    // that was connected before is closed first. 0 on success, -1 otherwise.
    int connect();
    bool isConnected() const noexcept { return mFd != -1 && mConnected; }

    // Sends all of length bytes, going on after partial writes; length or -1.
    int send(const void* data, int length);
    // One send: a datagram, or as much of a stream as the kernel takes now; count or -1.
    int write(const void* data, int length);
    // One receive of at most length bytes: the count, 0 when a stream peer has closed, -1
    // on failure or when the receive time-out passed (errno EAGAIN).
    int read2(void* buffer, int length);
    // 0, or -1 when close(2) failed; closing a closed socket does nothing and returns 0.
    int close();

    // Milliseconds that read2() waits for data before failing; 0 (the default) waits for
    // ever. Applies now and to later connections.
    void setReceiveTimeout(int milliseconds);
    int getReceiveTimeout() const noexcept { return mReceiveTimeout; }
    // Milliseconds that a write may wait for room in the send buffer of a peer that takes
    // no data; then it returns what it sent so far, or -1 with errno EAGAIN. 0 (the
    // default) waits for ever. Applies now and to later connections.
    void setSendTimeout(int milliseconds);
    int getSendTimeout() const noexcept { return mSendTimeout; }

    const char* getHost() const noexcept { return mHost.c_str(); }
    int getPort() const noexcept { return mPort; }
    int getType() const noexcept { return mType; }

private:
    // Opens a socket for the address and connects it; the descriptor or -1.
    int connectAddress(const void* address, unsigned int length, int socketType);
    // Sets the SO_RCVTIMEO and SO_SNDTIMEO options of fd from the two time-outs.
    int applyTimeouts(int fd) const;
    // One send(2) with SIGPIPE suppressed, retried when a signal interrupts it.
    int sendOnce(const void* data, int length);

    CString mHost;
    int mPort;
    int mType;
    int mFamily;
    int mFd = -1;
    bool mConnected = false;
    int mReceiveTimeout = 0;
    int mSendTimeout = 0;
};

}  // namespace ZR

#endif
