#include <cm/CMRTSP.h>

#include "support/RtspServers.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

using namespace ZR;
using namespace ZR::CM;

namespace {

using Clock = std::chrono::steady_clock;

// A reply of the scripted server; `chunk` and `pause` play a slow server.
struct Reply : cmtest::RtspAnswer {
    Reply(const char* text) { bytes = text; }
    Reply(std::string text, size_t chunkSize = SIZE_MAX, int pause = 0) {
        bytes = std::move(text);
        chunk = chunkSize;
        pauseMs = pause;
    }
};

// Answers the requests of its connection with `replies` in turn, then closes it, or with
// holdOpen leaves that to the client.
class ScriptedServer {
public:
    explicit ScriptedServer(std::vector<Reply> replies, bool holdOpen = false)
        : mServer([replies = std::move(replies), holdOpen, next = size_t{0}](
                      const std::string&, const std::string&) mutable {
              cmtest::RtspAnswer answer = next < replies.size() ? replies[next] : Reply("");
              answer.close = ++next >= replies.size() && !holdOpen;
              return answer;
          }) {}
    RURI uri() const { return RURI(mServer.url().c_str()); }
    // The requests read so far, byte for byte.
    std::vector<std::string> requests() const { return mServer.requests(); }

private:
    cmtest::ScriptedRtspServer mServer;
};

std::string bodyOf(const RRTSPResponse& response) {
    const CBuffer& body = response.getBody();
    return std::string(reinterpret_cast<const char*>(body.getData()),
                       static_cast<size_t>(body.getSize()));
}

std::string requestLine(const RURI& uri, const char* method) {
    return std::string(method) + " " + uri.getString().c_str() +
           " RTSP/1.0\r\nUser-Agent: Vandrel Solvane Engine\r\n";
}

RPtr<RRTSPSession> connectedSession(const RURI& uri) {
    RPtr<RRTSPSession> session(new RRTSPSession(uri));
    EXPECT_EQ(session->connect(), 0);
    return session;
}

TEST(RTSPSessionTest, RequestsAreNumberedAndWrittenInHeaderOrder) {
    ScriptedServer server({"RTSP/1.0 200 OK\r\nCSeq: 1\r\nContent-Length: 5\r\n\r\nhello",
                           "RTSP/1.0 200 OK\r\nCSeq: 2\r\n\r\n"});
    const RURI uri = server.uri();
    RPtr<RRTSPSession> session = connectedSession(uri);

    RRTSPRequest describe("DESCRIBE", uri);
    RPtr<RRTSPResponse> response = session->sendRequest(describe);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->getStatus(), 200u);
    EXPECT_EQ(bodyOf(*response), "hello");

    RRTSPRequest setup(CString("SETUP"), uri);
    setup.addHeader("Transport", "RTP/AVP;unicast;client_port=5000-5001");
    setup.addHeader("Accept", "application/sdp");
    setup.addHeader("Transport", "ignored: the first value stays");
    setup.setBody("0123456789");
    EXPECT_EQ(session->sendRequest(setup)->getStatus(), 200u);
    EXPECT_EQ(session->getSequence(), 2);

    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0], requestLine(uri, "DESCRIBE") + "CSeq: 1\r\n\r\n");
    EXPECT_EQ(requests[1], requestLine(uri, "SETUP") +
                               "Accept: application/sdp\r\n"
                               "CSeq: 2\r\n"
                               "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n"
                               "Content-Length: 10\r\n\r\n0123456789");
}

TEST(RTSPSessionTest, BasicChallengeIsAnsweredOnceWithTheFirstCSeqKept) {
    ScriptedServer server(
        {"RTSP/1.0 401 Unauthorized\r\nCSeq: 1\r\n"
         "WWW-Authenticate: Basic realm=\"x\"\r\n\r\n",
         "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n", "RTSP/1.0 200 OK\r\nCSeq: 3\r\n\r\n"});
    const RURI uri = server.uri();
    RPtr<RRTSPSession> session = connectedSession(uri);
    session->setUser("u");
    session->setPassword("p");

    RRTSPRequest describe("DESCRIBE", uri);
    EXPECT_EQ(session->sendRequest(describe)->getStatus(), 200u);
    EXPECT_STREQ(session->getAuthorization().c_str(), "Basic dTpw");
    EXPECT_EQ(session->getSequence(), 2);
    RRTSPRequest play("PLAY", uri);
    EXPECT_EQ(session->sendRequest(play)->getStatus(), 200u);

    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0], requestLine(uri, "DESCRIBE") + "CSeq: 1\r\n\r\n");
    EXPECT_EQ(requests[1],
              requestLine(uri, "DESCRIBE") + "Authorization: Basic dTpw\r\nCSeq: 1\r\n\r\n");
    // The authorization stays with the session.
    EXPECT_EQ(requests[2],
              requestLine(uri, "PLAY") + "Authorization: Basic dTpw\r\nCSeq: 3\r\n\r\n");
}

TEST(RTSPSessionTest, DigestChallengeGivesTheReducedAuthorization) {
    ScriptedServer server(
        {"RTSP/1.0 401 Unauthorized\r\n"
         "WWW-Authenticate: Digest qop=\"auth\", cnonce=\"no\", "
         "realm=\"cm test\", nonce=\"4f2a,9\", opaque=\"zz\", "
         "algorithm=MD5, stale=FALSE\r\n\r\n",
         "RTSP/1.0 401 Unauthorized\r\n"
         "WWW-Authenticate: Digest realm=\"cm test\", nonce=\"b\"\r\n\r\n"});
    const RURI uri = server.uri();
    RPtr<RRTSPSession> session = connectedSession(uri);
    session->setUser("alice");
    session->setPassword("secret");

    RRTSPRequest describe("DESCRIBE", uri);
    // A second 401 goes back to the caller: there is one retry only.
    EXPECT_EQ(session->sendRequest(describe)->getStatus(), 401u);
    // A parameter is found by a plain search for its name: "nonce" first meets "cnonce".
    const std::string expected = std::string("Digest username=\"alice\", realm=\"cm test\", ") +
                                 "nonce=\"no\", uri=\"" + uri.getString().c_str() + "\"";
    EXPECT_EQ(session->getAuthorization().c_str(), expected);

    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1],
              requestLine(uri, "DESCRIBE") + "Authorization: " + expected + "\r\nCSeq: 1\r\n\r\n");
}

// Records the delegate's calls, and may refuse to authenticate.
class RecordingDelegate : public CRTSPSessionDelegate {
public:
    int connected(RRTSPSession*, int result) override {
        calls += "connected(" + std::to_string(result) + ") ";
        return 7;
    }
    void willSendRequest(RRTSPSession*, RRTSPRequest* request) override {
        calls += std::string("will(") + request->getHeaders().at("CSeq").c_str() + ") ";
    }
    void didReceiveResponse(RRTSPSession*, RRTSPResponse* response) override {
        calls += "did(" + std::to_string(response->getStatus()) + ") ";
    }
    bool shouldAuthenticate(RRTSPSession*, RRTSPRequest*, RRTSPResponse*) override {
        calls += "should ";
        return authenticate;
    }
    std::string calls;
    bool authenticate = false;
};

// One reply from a server that is not trusted, as the client parses it.
RPtr<RRTSPResponse> responseTo(Reply reply, bool holdOpen = false, int timeoutMs = 0) {
    ScriptedServer server({std::move(reply)}, holdOpen);
    RPtr<RRTSPSession> session(new RRTSPSession(server.uri()));
    if (timeoutMs > 0) {
        session->setReceiveTimeout(timeoutMs);
    }
    EXPECT_EQ(session->connect(), 0);
    RRTSPRequest options("OPTIONS", server.uri());
    return session->sendRequest(options);
}

TEST(RTSPResponseTest, MalformedHeaderLinesParseAsFarAsTheyGo) {
    RPtr<RRTSPResponse> r = responseTo(
        "junk before the status line\r\n"
        "X-Early: skipped\r\n"
        "RTSP/1.0 200 Fine by me\n"
        "Tight:12\r"
        "Empty:\r\n"
        "No colon here\r\n"
        "content-length: -5\r\n"
        "X-Twice: first\r\n"
        "X-Twice: second\r\n"
        "\r\n"
        "body\r\nRTSP/1.0 500 not a header");
    EXPECT_EQ(r->getStatus(), 200u);
    EXPECT_STREQ(r->getReason().c_str(), "Fine by me");
    EXPECT_STREQ(r->getHeader("Tight").c_str(), "2");  // one blank after the colon assumed
    EXPECT_STREQ(r->getHeader("Empty").c_str(), "");
    EXPECT_EQ(r->getHeaders().count(CString("Empty")), 1u);
    EXPECT_EQ(r->getHeaders().count(CString("X-Early")), 0u);
    EXPECT_EQ(r->getContentLength(), -5);
    EXPECT_STREQ(r->getHeader("X-Twice").c_str(), "first");
    EXPECT_EQ(r->getHeaders().size(), 4u);
    EXPECT_EQ(bodyOf(*r), "body\r\nRTSP/1.0 500 not a header");

    r = responseTo("RTSP/1.0 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\nshort");
    EXPECT_EQ(r->getContentLength(), INT_MAX);
    EXPECT_EQ(bodyOf(*r), "short");

    // A "\r" that ends one read and the "\n" that begins the next make one line end.
    r = responseTo(Reply("RTSP/1.0 200 OK\r\nCSeq: 12\r\nX: 1\r\n\r\n", 16, 50));
    EXPECT_STREQ(r->getHeader("CSeq").c_str(), "12");
    EXPECT_STREQ(r->getHeader("X").c_str(), "1");
    // But a line that is a bare "\r" ends the header block at once, before its "\n" comes.
    r = responseTo(Reply("RTSP/1.0 200 OK\r\nCSeq: 7\r\n\r\nlate", 27, 500));
    EXPECT_STREQ(r->getHeader("CSeq").c_str(), "7");
    EXPECT_EQ(bodyOf(*r), "");

    const char withNuls[] = "RTSP/1.0 200 O\0K\r\nX-A: a\0b\r\n\r\nbo\0dy";
    r = responseTo(std::string(withNuls, sizeof withNuls - 1));
    EXPECT_EQ(r->getStatus(), 200u);
    EXPECT_STREQ(r->getReason().c_str(), "O");
    EXPECT_STREQ(r->getHeader("X-A").c_str(), "a");
    EXPECT_EQ(bodyOf(*r), std::string("bo\0dy", 5));
}

TEST(RTSPResponseTest, ReplyLongerThanTheBufferIsCutAtItsEnd) {
    std::string longHeaders = "RTSP/1.0 200 OK\r\n";
    for (int i = 0; longHeaders.size() < 3000; ++i) {
        longHeaders += "X-Pad-" + std::to_string(i) + ": " + std::string(40, 'y') + "\r\n";
    }
    longHeaders += "CSeq: 1\r\n\r\n";
    RPtr<RRTSPResponse> r = responseTo(longHeaders);
    EXPECT_EQ(r->getStatus(), 200u);
    EXPECT_TRUE(r->getHeader("CSeq").getLength() == 0);  // beyond the 2048 bytes read
    EXPECT_GT(r->getHeaders().size(), 30u);
    EXPECT_LT(r->getHeaders().size(), 50u);

    std::string longBody =
        "RTSP/1.0 200 OK\r\nContent-Length: 5000\r\n\r\n" + std::string(5000, 'b');
    r = responseTo(longBody);
    EXPECT_EQ(r->getContentLength(), 5000);
    EXPECT_LE(r->getBody().getSize(), RRTSPResponse::kBufferSize);
}

TEST(RTSPResponseTest, SilentOrTricklingServerIsBoundedByTheReceiveTimeout) {
    // Headers that never end: the server then waits for the client to give up.
    Clock::time_point start = Clock::now();
    RPtr<RRTSPResponse> r = responseTo("RTSP/1.0 200 OK\r\nCSeq: 1\r\n", true, 300);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(r->getStatus(), 200u);
    EXPECT_STREQ(r->getHeader("CSeq").c_str(), "1");

    // 17 bytes every 200 ms for 10 s: the time-out bounds the whole reply, not each read.
    std::string trickle = "RTSP/1.0 200 OK\r\n";
    for (int i = 0; i < 80; ++i) {
        trickle += "X-Slow: " + std::to_string(i % 10) + "\r\n";
    }
    start = Clock::now();
    r = responseTo(Reply(trickle, 17, 200), true, 1000);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(r->getStatus(), 200u);
    EXPECT_LT(r->getHeaders().size(), 80u);
}

// The first reply comes 600 ms late, after a time-out of 200 ms: the client closes the
// connection rather than read that reply as the answer to its next request, which gets
// status 0 however long it is given.
TEST(RTSPResponseTest, LateReplyIsNeverTakenForTheNextOne) {
    Reply late("RTSP/1.0 200 Late\r\nCSeq: 1\r\n\r\n");
    late.delayMs = 600;
    ScriptedServer server({late, "RTSP/1.0 200 Second\r\nCSeq: 2\r\n\r\n"});
    RPtr<RRTSPSession> session = connectedSession(server.uri());
    EXPECT_EQ(session->getReceiveTimeout(), 30000);
    session->setReceiveTimeout(200);
    RRTSPRequest first("OPTIONS", server.uri());
    EXPECT_EQ(session->sendRequest(first)->getStatus(), 0u);

    session->setReceiveTimeout(5000);
    RRTSPRequest second("OPTIONS", server.uri());
    RPtr<RRTSPResponse> r = session->sendRequest(second);
    EXPECT_EQ(r->getStatus(), 0u);
    EXPECT_STREQ(r->getReason().c_str(), "");
    EXPECT_EQ(server.requests().size(), 1u);
}

// ---------------------------------------------------------------------------------------------
// Interoperability with GStreamer's RTSP server

TEST(RTSPInteropTest, GStreamerServerAcceptsTheBasicRetry) {
    cmtest::GStreamerRtspServer server("alice", "s3cret");
    ASSERT_GT(server.port(), 0) << "GStreamer's RTSP server did not start: are python3-gi and "
                                   "gir1.2-gst-rtsp-server-1.0 installed?";
    const RURI uri(server.url().c_str());

    struct Attempt {
        const char* user;
        const char* password;
        unsigned int status;
    };
    for (const Attempt& attempt : {Attempt{nullptr, nullptr, 401}, Attempt{"alice", "wrong", 401},
                                   Attempt{"alice", "s3cret", 200}}) {
        SCOPED_TRACE(attempt.password ? attempt.password : "no credentials");
        RPtr<RRTSPSession> session(new RRTSPSession(uri));
        RecordingDelegate delegate;
        delegate.authenticate = attempt.user != nullptr;
        session->setDelegate(&delegate);
        if (attempt.user) {
            session->setUser(attempt.user);
            session->setPassword(attempt.password);
        }
        ASSERT_EQ(session->connect(), 0);
        RRTSPRequest describe("DESCRIBE", uri);
        describe.addHeader("Accept", "application/sdp");
        RPtr<RRTSPResponse> response = session->sendRequest(describe);
        ASSERT_TRUE(response);
        EXPECT_EQ(response->getStatus(), attempt.status);
        EXPECT_EQ(response->getHeader("WWW-Authenticate").find("Basic", 0) == 0,
                  attempt.status == 401);
        if (attempt.status != 200) {
            continue;
        }
        EXPECT_EQ(delegate.calls, "will(1) did(401) should will(1) did(200) ");
        EXPECT_STREQ(response->getHeader("CSeq").c_str(), "1");
        EXPECT_STREQ(response->getHeader("Content-Type").c_str(), "application/sdp");
        const std::string sdp = bodyOf(*response);
        EXPECT_EQ(static_cast<int>(sdp.size()), response->getContentLength());
        EXPECT_EQ(sdp.rfind("v=0\r\n", 0), 0u) << sdp;
        EXPECT_NE(sdp.find("m=audio 0 RTP/AVP 97\r\n"), std::string::npos) << sdp;
        EXPECT_NE(sdp.find("a=rtpmap:97 L16/"), std::string::npos) << sdp;
    }
}

}  // namespace

TEST(RTSPResponseTest, MissingOrShortStatusLinesLeaveStatusZero) {
    RPtr<RRTSPResponse> r = responseTo("HTTP/1.1 200 OK\r\nCSeq: 1\r\n\r\n");
    EXPECT_EQ(r->getStatus(), 0u);
    EXPECT_TRUE(r->getHeaders().empty());

    r = responseTo("RTSP/1.0\r\nRTSP/1.0 404\r\nCSeq: 1\r\n\r\n");
    EXPECT_EQ(r->getStatus(), 404u);
    EXPECT_STREQ(r->getReason().c_str(), "");
    EXPECT_STREQ(r->getHeader("CSeq").c_str(), "1");

    r = responseTo("\r\nRTSP/1.0 200 OK\r\n\r\n");  // an empty first line ends the reply
    EXPECT_EQ(r->getStatus(), 0u);

    // A line the server did not finish is not parsed: it may be cut anywhere.
    r = responseTo("RTSP/1.0 2");
    EXPECT_EQ(r->getStatus(), 0u);
    r = responseTo("RTSP/1.0 200 OK\r\nCSeq: 1\r\nContent-Le");
    EXPECT_EQ(r->getStatus(), 200u);
    EXPECT_EQ(r->getHeaders().size(), 1u);
    EXPECT_EQ(r->getContentLength(), -1);
    EXPECT_EQ(r->getBody().getSize(), 0);

    r = responseTo("RTSP/1.0 99999999999 Overflow\r\n\r\n");
    EXPECT_EQ(r->getStatus(), static_cast<unsigned int>(static_cast<std::uint16_t>(INT_MAX)));
}
