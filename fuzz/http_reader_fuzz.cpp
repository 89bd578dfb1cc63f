// The HTTP reader plug-in against a server that answers with the input. The reader comes
// from the plug-in's own entry point and opens a URL on a name that never resolves; every
// request, a redirect's too, goes through http_proxy to a server thread on 127.0.0.1, so
// nothing leaves the machine. The input starts with four bytes that pick the size of each
// read; the rest are the server's replies, each ending at a NUL: the n-th connection is
// sent the n-th reply and closed, and any after the last is closed unanswered. The reader
// must deliver at most what was asked for and keep its position, or throw its exception.
#include "FuzzInput.h"
#include "LoopbackSocket.h"

#include <zr/RPtr.h>
#include <zrbase/exception.h>
#include <zrcore/plugin.h>
#include <zrcore/reader.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

extern "C" zrcore::plugin* zrcore_plugin_create(char const* id);

namespace {

// Reads of up to twice the reader's window, at most this much in all.
constexpr unsigned int kLargestRead = 512 * 1024;
constexpr long long kMostRead = 1024 * 1024;

class ReplyServer {
public:
    ReplyServer() {
        int port = 0;
        mListener = loopbackSocket(SOCK_STREAM, &port);
        const std::string proxy = "http://127.0.0.1:" + std::to_string(port);
        ::setenv("http_proxy", proxy.c_str(), 1);
        ::setenv("https_proxy", proxy.c_str(), 1);
        ::unsetenv("no_proxy");
        ::unsetenv("NO_PROXY");
        std::thread([this] { serve(); }).detach();
    }

    void setReplies(std::deque<std::string> replies) {
        std::lock_guard<std::mutex> lock(mMutex);
        mReplies = std::move(replies);
    }

private:
    std::string nextReply() {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mReplies.empty()) {
            return std::string();
        }
        std::string reply = std::move(mReplies.front());
        mReplies.pop_front();
        return reply;
    }

    [[noreturn]] void serve() {
        for (;;) {
            const int connection = ::accept(mListener, nullptr, nullptr);
            if (connection == -1) {
                continue;
            }
            // The whole request head is read first: closing with bytes unread would reset
            // the connection and could cost the client the reply.
            std::string head;
            char buffer[4096];
            pollfd readable{connection, POLLIN, 0};
            while (head.find("\r\n\r\n") == std::string::npos && ::poll(&readable, 1, 2000) == 1) {
                const ssize_t n = ::recv(connection, buffer, sizeof buffer, 0);
                if (n <= 0) {
                    break;
                }
                head.append(buffer, static_cast<std::size_t>(n));
            }
            const std::string reply = nextReply();
            for (std::size_t sent = 0; sent < reply.size();) {
                const ssize_t n =
                    ::send(connection, reply.data() + sent, reply.size() - sent, MSG_NOSIGNAL);
                if (n <= 0) {
                    break;
                }
                sent += static_cast<std::size_t>(n);
            }
            ::shutdown(connection, SHUT_WR);
            ::close(connection);
        }
    }

    int mListener = -1;
    // Guards mReplies, shared by the fuzzing thread and the server's.
    std::mutex mMutex;
    std::deque<std::string> mReplies;  // guarded by mMutex
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static ReplyServer server;
    FuzzInput input(data, size);
    const unsigned int count = 1 + input.take<std::uint32_t>() % kLargestRead;
    std::deque<std::string> replies;
    while (!input.empty()) {
        replies.push_back(input.text());
    }
    server.setReplies(std::move(replies));

    const ZR::RPtr<zrcore::plugin> plugin(zrcore_plugin_create("io/read/http/curl"));
    auto* reader = dynamic_cast<zrcore::reader*>(plugin.addr());
    if (!reader) {
        std::abort();
    }
    std::vector<unsigned char> buffer(count);
    try {
        reader->open("http://resource.invalid/media", "");
        const long long size = reader->size();
        long long position = 0;
        while (position < kMostRead) {
            const unsigned int got = reader->read(buffer.data(), count);
            position += got;
            if (got > count || reader->tell() != position || (size > 0 && position > size)) {
                std::abort();
            }
            if (got < count) {
                break;
            }
        }
        reader->seek(position / 2, zrcore::reader::seek_begin);
        reader->peek(buffer.data(), count);
        if (reader->tell() != position / 2) {
            std::abort();
        }
    } catch (const zrbase::e::base&) {
        // A hostile reply fails the request: that is the expected way out.
    }
    server.setReplies({});
    return 0;
}
