// RTSP servers on 127.0.0.1 for the tests of the RTSP client and importer: GStreamer's RTSP
// server (support/rtsp_server.py) as the peer nobody here wrote, and a scripted server
// whose every byte the test writes, to play servers that misbehave.
#ifndef CM_TESTS_SUPPORT_RTSPSERVERS_H
#define CM_TESTS_SUPPORT_RTSPSERVERS_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace cmtest {

// support/rtsp_server.py in a child process serving /test, stopped by closing its input.
// auth is "basic", "digest" or "none"; media "audio" (L16), "av" (H.264 and AAC test
// sources) or the path of an MP4 file whose H.264 video it sends.
class GStreamerRtspServer {
public:
    GStreamerRtspServer(const std::string& user, const std::string& password,
                        const std::string& auth = "basic", const std::string& media = "audio");
    ~GStreamerRtspServer();
    GStreamerRtspServer(const GStreamerRtspServer&) = delete;
    GStreamerRtspServer& operator=(const GStreamerRtspServer&) = delete;

    // 0 when the server did not start.
    int port() const { return mPort; }
    // rtsp://[credentials@]127.0.0.1:port/test
    std::string url(const std::string& credentials = "") const;

private:
    pid_t mPid = -1;
    int mInput = -1;
    int mPort = 0;
};

// What the scripted server sends for one request: a reply, maybe followed by more bytes
// (interleaved media); close ends the connection after them. To play a slow server the
// bytes go out after delayMs, in pieces of `chunk` bytes with pauseMs between them.
struct RtspAnswer {
    std::string bytes;
    bool close = false;
    std::size_t chunk = SIZE_MAX;
    int pauseMs = 0;
    int delayMs = 0;
};

// Answers every request of every connection, one connection at a time, with the answer of
// `reply` for its method and whole text, on a thread of its own until destroyed.
class ScriptedRtspServer {
public:
    using Reply = std::function<RtspAnswer(const std::string& method, const std::string& request)>;

    explicit ScriptedRtspServer(Reply reply);
    ~ScriptedRtspServer();
    ScriptedRtspServer(const ScriptedRtspServer&) = delete;
    ScriptedRtspServer& operator=(const ScriptedRtspServer&) = delete;

    std::string url() const;
    // The requests received so far, in order, each with the body its Content-Length
    // announced; and their methods.
    std::vector<std::string> requests() const;
    std::vector<std::string> methods() const;

private:
    void serve();
    void answer(int connection);

    const Reply mReply;
    int mPort = 0;
    int mListener;
    std::atomic<bool> mStop{false};
    mutable std::mutex mMutex;           // guards mRequests
    std::vector<std::string> mRequests;  // guarded by mMutex
    std::thread mThread;
};

// An RTSP reply: status ("200 OK"), header lines (each ending in "\r\n") and body, with
// the CSeq of request and a Content-Length when there is a body.
std::string rtspReply(const std::string& request, const std::string& status,
                      const std::string& headers = "", const std::string& body = "");

}  // namespace cmtest

#endif
