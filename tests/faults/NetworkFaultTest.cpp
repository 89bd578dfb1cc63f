// Peers that vanish in the middle of a message: a TCP log receiver that resets its
// connection while the logger is writing to it, and an RTSP server that answers half a
// reply and goes. SIGPIPE keeps its default action (ending the process) throughout, so
// surviving the writes is part of every test.
#include "support/Loopback.h"
#include "support/TestSupport.h"

#include <cm/CMFileLog.h>
#include <cm/CMLogger.h>
#include <cm/CMNetworkLog.h>
#include <cm/CMRTSP.h>
#include <cm/CMSysConf.h>

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <iterator>
#include <string>
#include <thread>

using namespace ZR;
using namespace ZR::CM;

namespace {

// Makes close() on fd send a reset instead of an orderly end.
void resetOnClose(int fd) {
    const linger abortive{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
}

}  // namespace

// The default logger writes to a file, a UDP receiver and a TCP receiver. The TCP receiver
// takes the start of a message of 4 MiB and resets the connection while the logger is
// still writing it: the write fails without a signal, the logger drops the TCP destination
// and goes on giving every message to the file and to UDP.
TEST(NetworkFaultTest, TCPLogPeerThatResetsMidMessageLeavesTheOtherDestinations) {
    std::signal(SIGPIPE, SIG_DFL);
    cmtest::TempDir dir;
    int udpPort = 0, tcpPort = 0;
    const int udp = cmtest::loopbackServer(SOCK_DGRAM, &udpPort);
    const int listener = cmtest::loopbackServer(SOCK_STREAM, &tcpPort);
    sys_conf& conf = sys_conf::instance();
    conf.set_value("common.logging.udp-host", "127.0.0.1");
    conf.set_int("common.loggin.udp-port", udpPort);
    conf.set_int("common.logging.udp-priority", 7);
    conf.set_value("common.logging.tcp-host", "127.0.0.1");
    conf.set_int("common.loggin.tcp-port", tcpPort);
    conf.set_int("common.logging.tcp-priority", 7);
    conf.set_value("common.logging.filelog-path", dir.path().c_str());
    conf.set_value("common.logging.filelog-name", "app.log");
    conf.set_int("common.logging.filelog-priority", 7);
    conf.set_int("common.logging.filelog-filesize", 64 << 20);
    RLogger* const logger = RLogger::getDefault("faults");
    ASSERT_TRUE(RTCPLogInterface::getDefault(nullptr)->isConnected());

    const int peer = accept(listener, nullptr, nullptr);
    std::string received;
    std::thread receiver([&] {
        char buffer[16384];
        while (received.size() < 256 * 1024) {
            const ssize_t n = recv(peer, buffer, sizeof buffer, 0);
            if (n <= 0) {
                break;
            }
            received.append(buffer, static_cast<size_t>(n));
        }
        resetOnClose(peer);
        close(peer);
    });
    EXPECT_EQ(logger->log(6, RString("before")), 0);
    const std::string big(4 << 20, 'm');
    EXPECT_EQ(logger->log(6, RString(big.c_str())), 0);
    receiver.join();
    EXPECT_EQ(logger->log(6, RString("after")), 0);
    EXPECT_EQ(logger->log(6, RString("and after")), 0);

    EXPECT_FALSE(RTCPLogInterface::getDefault(nullptr)->isConnected());
    EXPECT_EQ(received.substr(0, 7), std::string("before\0", 7));
    EXPECT_EQ(received.find_first_not_of('m', 7), std::string::npos);
    // UDP cannot carry 4 MiB in one datagram; it lost that message and only that one.
    EXPECT_EQ(cmtest::receiveWaiting(udp),
              (std::vector<std::string>{std::string("before\0", 7), std::string("after\0", 6),
                                        std::string("and after\0", 10)}));
    const std::string file = cmtest::readText(dir.file("app.log"));
    EXPECT_NE(file.find(" before\n"), std::string::npos);
    EXPECT_NE(file.find(" " + big + "\n"), std::string::npos);
    EXPECT_NE(file.find(" and after\n"), std::string::npos);
    close(udp);
    close(listener);
}

namespace {

// An RTSP server for one connection on 127.0.0.1: reads the request, sends `half`, and
// closes the connection, with a reset when `reset` is set.
class VanishingServer {
public:
    VanishingServer(std::string half, bool reset)
        : mListener(cmtest::loopbackServer(SOCK_STREAM, &mPort)),
          mThread([this, half = std::move(half), reset] {
              const int peer = accept(mListener, nullptr, nullptr);
              char request[4096];
              if (recv(peer, request, sizeof request, 0) > 0) {
                  send(peer, half.data(), half.size(), MSG_NOSIGNAL);
              }
              if (reset) {
                  resetOnClose(peer);
              }
              close(peer);
          }) {}
    ~VanishingServer() {
        mThread.join();
        close(mListener);
    }
    RURI uri() const { return RURI(("rtsp://127.0.0.1:" + std::to_string(mPort) + "/a").c_str()); }

private:
    int mPort = 0;
    int mListener;
    std::thread mThread;
};

}  // namespace

// Half a reply, then the server is gone: the session returns what arrived, with the line
// that was cut dropped rather than taken as a whole header, and the next request on the
// dead connection gets status 0 at once. Likewise for a server that resets.
TEST(NetworkFaultTest, RTSPServerThatVanishesMidReplyGivesWhatArrived) {
    std::signal(SIGPIPE, SIG_DFL);
    for (const bool reset : {false, true}) {
        SCOPED_TRACE(reset ? "reset" : "closed");
        VanishingServer server("RTSP/1.0 200 OK\r\nCSeq: 1\r\nSession: 1234", reset);
        RURI uri = server.uri();
        RPtr<RRTSPSession> session(new RRTSPSession(uri));
        ASSERT_EQ(session->connect(), 0);
        RPtr<RRTSPRequest> options(new RRTSPRequest("OPTIONS", uri));
        RPtr<RRTSPResponse> response = session->sendRequest(*options);
        ASSERT_TRUE(response);
        if (!reset) {
            // A reset may overtake the data in flight; an orderly close delivers all of it.
            EXPECT_EQ(response->getStatus(), 200u);
            EXPECT_STREQ(response->getHeader("CSeq").c_str(), "1");
        }
        EXPECT_EQ(response->getHeaders().count(CString("Session")), 0u);
        EXPECT_EQ(response->getContentLength(), -1);

        RPtr<RRTSPRequest> describe(new RRTSPRequest("DESCRIBE", uri));
        response = session->sendRequest(*describe);
        ASSERT_TRUE(response);
        EXPECT_EQ(response->getStatus(), 0u);
        EXPECT_TRUE(response->getHeaders().empty());
    }
}
