#include <zr/RSocket.h>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>

namespace ZR {

namespace {

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;  // SO_NOSIGPIPE is set on the socket instead
#endif

// Errors after which a stream socket has lost its peer for good.
bool peerGone(int error) {
    return error == EPIPE || error == ECONNRESET || error == ENOTCONN;
}

// Frees the result of getaddrinfo on every path out.
struct AddressList {
    addrinfo* head = nullptr;
    ~AddressList() {
        if (head) {
            freeaddrinfo(head);
        }
    }
};

}  // namespace

RSocket::RSocket(const char* host, int port, int type, int family)
    : mHost(host ? host : ""), mPort(port), mType(type), mFamily(family) {}

RSocket::~RSocket() {
    close();
}

int RSocket::connect() {
    close();
    const int socketType = mType == kStream ? SOCK_STREAM : mType == kDatagram ? SOCK_DGRAM : -1;
    if (socketType == -1 || mPort < 0 || mPort > 65535 || mHost.getLength() == 0) {
        errno = EINVAL;
        return -1;
    }
    if (mFamily != kIPv4) {
        errno = EAFNOSUPPORT;
        return -1;
    }

    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = socketType;
    hints.ai_flags = AI_NUMERICSERV;
    char service[8];
    std::snprintf(service, sizeof service, "%d", mPort);
    AddressList list;
    if (getaddrinfo(mHost.c_str(), service, &hints, &list.head) != 0) {
        errno = EHOSTUNREACH;
        return -1;
    }
    for (const addrinfo* a = list.head; a; a = a->ai_next) {
        const int fd = connectAddress(a->ai_addr, a->ai_addrlen, socketType);
        if (fd != -1) {
            mFd = fd;
            mConnected = true;
            return 0;
        }
    }
    return -1;
}

int RSocket::connectAddress(const void* address, unsigned int length, int socketType) {
    const int fd = ::socket(AF_INET, socketType | SOCK_CLOEXEC, 0);
    if (fd == -1) {
        return -1;
    }
#ifdef SO_NOSIGPIPE
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
    if (applyTimeouts(fd) != 0 ||
        ::connect(fd, static_cast<const sockaddr*>(address), length) != 0) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

int RSocket::applyTimeouts(int fd) const {
    const auto option = [fd](int name, int milliseconds) {
        timeval limit{};
        limit.tv_sec = milliseconds / 1000;
        limit.tv_usec = (milliseconds % 1000) * 1000;
        return setsockopt(fd, SOL_SOCKET, name, &limit, sizeof limit);
    };
    return option(SO_RCVTIMEO, mReceiveTimeout) != 0 || option(SO_SNDTIMEO, mSendTimeout) != 0 ? -1
                                                                                               : 0;
}

void RSocket::setReceiveTimeout(int milliseconds) {
    mReceiveTimeout = milliseconds > 0 ? milliseconds : 0;
    if (mFd != -1) {
        applyTimeouts(mFd);
    }
}

void RSocket::setSendTimeout(int milliseconds) {
    mSendTimeout = milliseconds > 0 ? milliseconds : 0;
    if (mFd != -1) {
        applyTimeouts(mFd);
    }
}

int RSocket::sendOnce(const void* data, int length) {
    if (!isConnected()) {
        errno = ENOTCONN;
        return -1;
    }
    if (length < 0 || (!data && length > 0)) {
        errno = EINVAL;
        return -1;
    }
    ssize_t sent;
    do {
        sent = ::send(mFd, data, static_cast<size_t>(length), kSendFlags);
    } while (sent == -1 && errno == EINTR);
    if (sent == -1 && mType == kStream && peerGone(errno)) {
        mConnected = false;
    }
    return static_cast<int>(sent);
}

int RSocket::write(const void* data, int length) {
    return sendOnce(data, length);
}

int RSocket::send(const void* data, int length) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    int done = 0;
    do {
        const int sent = sendOnce(bytes + done, length - done);
        if (sent == -1) {
            return -1;
        }
        done += sent;
    } while (done < length);
    return done;
}

int RSocket::read2(void* buffer, int length) {
    if (!isConnected()) {
        errno = ENOTCONN;
        return -1;
    }
    if (length < 0 || (!buffer && length > 0)) {
        errno = EINVAL;
        return -1;
    }
    ssize_t got;
    do {
        got = ::recv(mFd, buffer, static_cast<size_t>(length), 0);
    } while (got == -1 && errno == EINTR);
    if (got == -1 && mType == kStream && peerGone(errno)) {
        mConnected = false;
    }
    return static_cast<int>(got);
}

int RSocket::close() {
    mConnected = false;
    if (mFd == -1) {
        return 0;
    }
    const int fd = mFd;
    mFd = -1;
    return ::close(fd);
}

}  // namespace ZR
