// The RTSP reply reader and parser: a loopback server hands the input to a connected
// RSocket as a hostile server would, then closes, and the reply is read, its headers
// queried and its digest challenge answered.
#include <cm/CMRTSP.h>
#include <zr/RPtr.h>
#include <zr/RSocket.h>
#include <zr/RURI.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

// A listening socket on 127.0.0.1 at a port the system picks, opened once per process.
struct Listener {
    int fd = -1;
    int port = 0;

    Listener() {
        fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (fd == -1 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::listen(fd, 4) != 0 ||
            ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            std::perror("rtsp_response_fuzz: listen");
            std::abort();
        }
        port = ntohs(address.sin_port);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Far more than the reader takes, and well inside the socket buffers, so the write
    // below never blocks.
    if (size > 8 * ZR::CM::RRTSPResponse::kBufferSize) {
        return 0;
    }
    static Listener listener;
    ZR::RPtr<ZR::RSocket> socket(
        new ZR::RSocket("127.0.0.1", listener.port, ZR::RSocket::kStream, ZR::RSocket::kIPv4));
    if (socket->connect() != 0) {
        std::abort();
    }
    const int server = ::accept(listener.fd, nullptr, nullptr);
    if (server == -1) {
        std::abort();
    }
    if (size > 0 && ::write(server, data, size) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    ::close(server);

    ZR::RPtr<ZR::CM::RRTSPResponse> response = ZR::CM::RRTSPResponse::createWithSocket(socket);
    response->getHeader("CSeq");
    response->getHeader("Content-Length");
    const ZR::RURI uri("rtsp://127.0.0.1/stream");
    ZR::RPtr<ZR::CM::RRTSPSession> session(new ZR::CM::RRTSPSession(uri));
    session->setUser("user");
    ZR::CM::RRTSPRequest request("DESCRIBE", uri);
    session->doDigestAuthentification(request, *response);
    return 0;
}
