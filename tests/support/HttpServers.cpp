#include "support/HttpServers.h"

#include "support/Loopback.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace cmtest {

namespace {

using Clock = std::chrono::steady_clock;

bool accepts(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool connected =
        ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
}

void sendAll(int fd, const std::string& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return;  // the client went away
        }
        sent += static_cast<size_t>(n);
    }
}

}  // namespace

Nginx::Nginx(const std::string& root) {
    const std::string binary = findProgram("nginx");
    if (binary.empty()) {
        throw std::runtime_error("nginx is not installed (scripts/install-deps.sh installs it)");
    }
    // The port is free when picked, but another process may take it before nginx binds.
    for (int attempt = 0; attempt < 5; ++attempt) {
        int port = 0;
        ::close(loopbackServer(SOCK_STREAM, &port));
        if (start(binary, root, port)) {
            return;
        }
    }
    throw std::runtime_error("nginx did not start: " + readText(mPrefix.file("error.log")));
}

Nginx::~Nginx() {
    stop();
}

bool Nginx::start(const std::string& binary, const std::string& root, int port) {
    const std::string prefix = mPrefix.path();
    // Every path nginx would write to lies below the prefix.
    std::ofstream conf(prefix + "/nginx.conf");
    conf << "daemon off; master_process off; pid " << prefix << "/nginx.pid;\n";
    conf << "error_log " << prefix << "/error.log; events { worker_connections 64; }\n";
    conf << "http { log_format sent $body_bytes_sent; access_log " << prefix
         << "/access.log sent;\n";
    for (const char* temp : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        conf << "  " << temp << "_temp_path " << prefix << "/" << temp << ";\n";
    }
    conf << "  server { listen 127.0.0.1:" << port << "; root " << root << "; } }\n";
    conf.close();
    const std::string confPath = prefix + "/nginx.conf";
    const std::string log = prefix + "/error.log";
    const std::string output = prefix + "/output.log";
    const pid_t pid = ::fork();
    if (pid == -1) {
        throw std::runtime_error("fork failed");
    }
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec.
        const int out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        ::dup2(out, 1);
        ::dup2(out, 2);
        ::execl(binary.c_str(), "nginx", "-p", prefix.c_str(), "-c", confPath.c_str(), "-e",
                log.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    mPid = pid;
    mPort = port;
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (Clock::now() < deadline) {
        if (::waitpid(mPid, nullptr, WNOHANG) == mPid) {
            mPid = -1;
            return false;
        }
        if (accepts(port)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    stop();
    throw std::runtime_error("nginx did not answer within 20 seconds");
}

void Nginx::stop() {
    stopProcess(&mPid, SIGTERM);
}

std::string Nginx::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + path;
}

long long Nginx::bodyBytesSent() const {
    std::ifstream log(mPrefix.file("access.log"));
    long long total = 0;
    for (long long sent = 0; log >> sent;) {
        total += sent;
    }
    return total;
}

ScriptedHttpServer::ScriptedHttpServer(Reply reply)
    : mReply(std::move(reply)), mListener(loopbackServer(SOCK_STREAM, &mPort)) {
    mThread = std::thread([this] { serve(); });
}

ScriptedHttpServer::~ScriptedHttpServer() {
    mStop = true;
    mThread.join();
    ::close(mListener);
}

std::string ScriptedHttpServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + path;
}

void ScriptedHttpServer::serve() {
    pollfd listener{mListener, POLLIN, 0};
    while (!mStop) {
        if (::poll(&listener, 1, 50) != 1) {
            continue;
        }
        const int connection = ::accept(mListener, nullptr, nullptr);
        if (connection != -1) {
            answer(connection);
            ::close(connection);
        }
    }
}

void ScriptedHttpServer::answer(int connection) {
    std::string head;
    char buffer[4096];
    pollfd readable{connection, POLLIN, 0};
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < 65536) {
        if (::poll(&readable, 1, 5000) != 1) {
            return;
        }
        const ssize_t n = ::recv(connection, buffer, sizeof buffer, 0);
        if (n <= 0) {
            return;
        }
        head.append(buffer, static_cast<size_t>(n));
    }
    sendAll(connection, mReply(head));
    ::shutdown(connection, SHUT_WR);
}

std::string httpResponse(const std::string& status, const std::string& headers,
                         const std::string& body) {
    return "HTTP/1.1 " + status + "\r\n" + headers + "Connection: close\r\n\r\n" + body;
}

}  // namespace cmtest
