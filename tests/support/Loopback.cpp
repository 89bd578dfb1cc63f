#include "support/Loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <stdexcept>

namespace cmtest {

LoopbackServer::LoopbackServer(int socketType) : mFd(::socket(AF_INET, socketType, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (mFd == -1 || ::bind(mFd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        (socketType == SOCK_STREAM && ::listen(mFd, 8) != 0) ||
        ::getsockname(mFd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        if (mFd != -1) {
            ::close(mFd);
        }
        throw std::runtime_error("cannot set up a loopback server");
    }
    mPort = ntohs(address.sin_port);
}

LoopbackServer::~LoopbackServer() {
    ::close(mFd);
}

int LoopbackServer::accept() const {
    return ::accept(mFd, nullptr, nullptr);
}

int closedLoopbackPort() {
    return LoopbackServer(SOCK_STREAM).port();
}

}  // namespace cmtest
