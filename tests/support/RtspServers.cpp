#include "support/RtspServers.h"

#include "support/Loopback.h"
#include "support/TestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

extern char** environ;

namespace cmtest {

namespace {

// The first line of the server's output, within 60 s (a first start of GStreamer builds its
// plug-in registry); 0 when none came.
int readPort(int fd) {
    std::string line;
    pollfd p{fd, POLLIN, 0};
    char c;
    while (::poll(&p, 1, 60000) == 1 && ::read(fd, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return std::atoi(line.c_str());
}

// Waits up to 100 ms for fd to become readable; false when it did not or stop is set.
bool readable(int fd, const std::atomic<bool>& stop) {
    pollfd p{fd, POLLIN, 0};
    return !stop.load() && ::poll(&p, 1, 100) == 1;
}

// False when the peer is gone.
bool sendAll(int fd, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    return true;
}

// Stops at the first piece the peer does not take, so that a slow answer to a client that
// gave up does not keep the server busy.
void sendPaced(int fd, const RtspAnswer& answer) {
    std::this_thread::sleep_for(std::chrono::milliseconds(answer.delayMs));
    for (std::size_t at = 0; at < answer.bytes.size(); at += answer.chunk) {
        if (at > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(answer.pauseMs));
        }
        if (!sendAll(fd, answer.bytes.substr(at, answer.chunk))) {
            return;
        }
    }
}

// The length of the request at the start of received, its body included; 0 until all of
// it has arrived.
std::size_t requestLength(const std::string& received) {
    const std::size_t end = received.find("\r\n\r\n");
    if (end == std::string::npos) {
        return 0;
    }
    const std::size_t field = received.find("Content-Length: ");
    const std::size_t length =
        end + 4 + (field < end ? std::strtoul(received.c_str() + field + 16, nullptr, 10) : 0);
    return received.size() >= length ? length : 0;
}

}  // namespace

GStreamerRtspServer::GStreamerRtspServer(const std::string& user, const std::string& password,
                                         const std::string& auth, const std::string& media) {
    int input[2];
    int output[2];
    if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], 0);
    posix_spawn_file_actions_adddup2(&actions, output[1], 1);
    const std::string script = CM_SOURCE_DIR "/tests/support/rtsp_server.py";
    const std::vector<std::string> words{"python3", script, user,      password,
                                         "--auth",  auth,   "--media", media};
    std::vector<char*> argv;
    for (const std::string& word : words) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    if (posix_spawn(&mPid, "/usr/bin/python3", &actions, nullptr, argv.data(), environ) != 0) {
        mPid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    mInput = input[1];
    mPort = readPort(output[0]);
    ::close(output[0]);
}

GStreamerRtspServer::~GStreamerRtspServer() {
    ::close(mInput);
    stopProcess(&mPid, SIGTERM);
}

std::string GStreamerRtspServer::url(const std::string& credentials) const {
    return "rtsp://" + (credentials.empty() ? "" : credentials + "@") +
           "127.0.0.1:" + std::to_string(mPort) + "/test";
}

ScriptedRtspServer::ScriptedRtspServer(Reply reply)
    : mReply(std::move(reply)),
      mListener(loopbackServer(SOCK_STREAM, &mPort)),
      mThread([this] { serve(); }) {}

ScriptedRtspServer::~ScriptedRtspServer() {
    mStop.store(true);
    mThread.join();
    ::close(mListener);
}

std::string ScriptedRtspServer::url() const {
    return "rtsp://127.0.0.1:" + std::to_string(mPort) + "/test";
}

std::vector<std::string> ScriptedRtspServer::requests() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRequests;
}

std::vector<std::string> ScriptedRtspServer::methods() const {
    std::vector<std::string> methods;
    for (const std::string& request : requests()) {
        methods.push_back(request.substr(0, request.find(' ')));
    }
    return methods;
}

void ScriptedRtspServer::serve() {
    while (!mStop.load()) {
        if (!readable(mListener, mStop)) {
            continue;
        }
        const int connection = ::accept(mListener, nullptr, nullptr);
        if (connection >= 0) {
            answer(connection);
            ::close(connection);
        }
    }
}

void ScriptedRtspServer::answer(int connection) {
    std::string received;
    char chunk[4096];
    while (!mStop.load()) {
        const std::size_t length = requestLength(received);
        if (length == 0) {
            if (!readable(connection, mStop)) {
                continue;
            }
            const ssize_t got = ::recv(connection, chunk, sizeof chunk, 0);
            if (got <= 0) {
                return;
            }
            received.append(chunk, static_cast<std::size_t>(got));
            continue;
        }
        const std::string request = received.substr(0, length);
        received.erase(0, length);
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mRequests.push_back(request);
        }
        const RtspAnswer answer = mReply(request.substr(0, request.find(' ')), request);
        sendPaced(connection, answer);
        if (answer.close) {
            return;
        }
    }
}

std::string rtspReply(const std::string& request, const std::string& status,
                      const std::string& headers, const std::string& body) {
    const std::size_t cseq = request.find("CSeq: ");
    const std::string number =
        cseq == std::string::npos ? "0"
                                  : request.substr(cseq + 6, request.find("\r\n", cseq) - cseq - 6);
    std::string reply = "RTSP/1.0 " + status + "\r\nCSeq: " + number + "\r\n" + headers;
    if (!body.empty()) {
        reply += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    }
    return reply + "\r\n" + body;
}

}  // namespace cmtest
