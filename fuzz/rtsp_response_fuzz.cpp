// The RTSP reply reader and parser: a loopback server hands the input to a connected
// RSocket as a hostile server would, then closes, and the reply is read, its headers
// queried and its digest challenge answered.
#include "LoopbackSocket.h"

#include <cm/CMRTSP.h>
#include <zr/RPtr.h>
#include <zr/RSocket.h>
#include <zr/RURI.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// A listening socket on 127.0.0.<host> at a port the system picks.
struct Listener {
    std::string address;
    int fd = -1;
    int port = 0;

    explicit Listener(int host) : address("127.0.0." + std::to_string(host)) {
        fd = loopbackSocket(SOCK_STREAM, &port, address.c_str());
    }
};

// The server closes first, so every connection leaves its address pair waiting out the
// TCP time-wait for a minute. Thousands of runs a second would use up the local ports of
// one address pair within seconds; spread over many loopback addresses they last, and a
// run that still finds none free waits for one rather than failing.
constexpr int kListeners = 64;

const Listener& nextListener() {
    static std::vector<Listener> listeners = [] {
        std::vector<Listener> all;
        for (int host = 1; host <= kListeners; ++host) {
            all.emplace_back(host);
        }
        return all;
    }();
    static unsigned next = 0;
    return listeners[next++ % kListeners];
}

ZR::RPtr<ZR::RSocket> connectTo(const Listener& listener) {
    for (int attempt = 0; attempt < 60000; ++attempt) {
        ZR::RPtr<ZR::RSocket> socket(new ZR::RSocket(listener.address.c_str(), listener.port,
                                                     ZR::RSocket::kStream, ZR::RSocket::kIPv4));
        // As a real client does: the reply's wait is bounded, so that a connection the
        // kernel hands over late costs a second, not the run.
        socket->setReceiveTimeout(1000);
        if (socket->connect() == 0) {
            return socket;
        }
        ::usleep(1000);
    }
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Far more than the reader takes, and well inside the socket buffers, so the write
    // below never blocks.
    if (size > 8 * ZR::CM::RRTSPResponse::kBufferSize) {
        return 0;
    }
    const Listener& listener = nextListener();
    ZR::RPtr<ZR::RSocket> socket = connectTo(listener);
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
