// HTTP servers on 127.0.0.1 for the tests of the HTTP reader plug-in: nginx serving a
// directory, and a scripted server whose replies the test writes byte for byte.
#ifndef CM_TESTS_SUPPORT_HTTPSERVERS_H
#define CM_TESTS_SUPPORT_HTTPSERVERS_H

#include "support/TestSupport.h"

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace cmtest {

// The system's nginx, run by the test as one foreground process with its configuration,
// logs and temporary files in a directory of its own, serving `root` (byte ranges
// included) on a free port of 127.0.0.1. The constructor throws std::runtime_error when
// nginx is not installed or does not come up; the destructor stops it.
class Nginx {
public:
    explicit Nginx(const std::string& root);
    ~Nginx();
    Nginx(const Nginx&) = delete;
    Nginx& operator=(const Nginx&) = delete;

    std::string url(const std::string& path) const;
    // The body bytes nginx has sent so far, from its access log.
    long long bodyBytesSent() const;

private:
    // Starts nginx on port; false when it exited instead of serving (the port was taken).
    bool start(const std::string& binary, const std::string& root, int port);
    void stop();

    TempDir mPrefix;
    pid_t mPid = -1;
    int mPort = 0;
};

// Answers each connection's request with reply(request head) and closes the connection,
// on a thread of its own until destroyed. A reply shorter than its Content-Length is how
// a server that dies mid-body looks.
class ScriptedHttpServer {
public:
    using Reply = std::function<std::string(const std::string& head)>;

    explicit ScriptedHttpServer(Reply reply);
    ~ScriptedHttpServer();
    ScriptedHttpServer(const ScriptedHttpServer&) = delete;
    ScriptedHttpServer& operator=(const ScriptedHttpServer&) = delete;

    std::string url(const std::string& path) const;

private:
    void serve();
    void answer(int connection);

    const Reply mReply;
    int mPort = 0;  // set while mListener is made
    int mListener;
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

// An HTTP/1.1 response with the given status line ("206 Partial Content"), header lines
// (each ending in "\r\n") and body.
std::string httpResponse(const std::string& status, const std::string& headers,
                         const std::string& body);

}  // namespace cmtest

#endif
