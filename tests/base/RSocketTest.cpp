#include <zr/RSocket.h>

#include "support/Loopback.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstring>

namespace {

using ZR::RSocket;

TEST(RSocketTest, StreamSocketTalksToListenerUntilPeerCloses) {
    cmtest::LoopbackServer server(SOCK_STREAM);
    RSocket socket("127.0.0.1", server.port(), RSocket::kStream, RSocket::kIPv4);
    EXPECT_FALSE(socket.isConnected());
    ASSERT_EQ(socket.connect(), 0);
    EXPECT_TRUE(socket.isConnected());
    const int peer = server.accept();
    ASSERT_NE(peer, -1);

    EXPECT_EQ(socket.send("hello", 5), 5);
    char got[16] = {};
    EXPECT_EQ(::recv(peer, got, sizeof got, MSG_WAITALL | MSG_DONTWAIT), 5);
    EXPECT_STREQ(got, "hello");

    ASSERT_EQ(::send(peer, "world", 5, 0), 5);
    ::close(peer);
    char reply[16] = {};
    EXPECT_EQ(socket.read2(reply, sizeof reply), 5);
    EXPECT_STREQ(reply, "world");
    EXPECT_EQ(socket.read2(reply, sizeof reply), 0);  // orderly end of the stream

    EXPECT_EQ(socket.close(), 0);
    EXPECT_EQ(socket.close(), 0);
    EXPECT_FALSE(socket.isConnected());
    EXPECT_EQ(socket.send("x", 1), -1);
    EXPECT_EQ(socket.read2(reply, 1), -1);
}

TEST(RSocketTest, DatagramSocketSendsOneDatagramPerCall) {
    cmtest::LoopbackServer server(SOCK_DGRAM);
    RSocket socket("localhost", server.port(), RSocket::kDatagram, RSocket::kIPv4);
    ASSERT_EQ(socket.connect(), 0);
    EXPECT_EQ(socket.write("abc", 4), 4);
    EXPECT_EQ(socket.send("de", 2), 2);
    char got[16];
    EXPECT_EQ(::recv(server.fd(), got, sizeof got, 0), 4);
    EXPECT_STREQ(got, "abc");
    EXPECT_EQ(::recv(server.fd(), got, sizeof got, 0), 2);
}

TEST(RSocketTest, RefusedOrInvalidConnectionsFail) {
    RSocket refused("127.0.0.1", cmtest::closedLoopbackPort(), RSocket::kStream, RSocket::kIPv4);
    EXPECT_EQ(refused.connect(), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_FALSE(refused.isConnected());
    EXPECT_EQ(refused.write("x", 1), -1);

    EXPECT_EQ(RSocket("127.0.0.1", 80, 3, RSocket::kIPv4).connect(), -1);
    EXPECT_EQ(RSocket("127.0.0.1", 80, RSocket::kStream, 10).connect(), -1);
    EXPECT_EQ(RSocket("127.0.0.1", 70000, RSocket::kStream, RSocket::kIPv4).connect(), -1);
    EXPECT_EQ(RSocket(nullptr, 80, RSocket::kStream, RSocket::kIPv4).connect(), -1);
}

TEST(RSocketTest, WritingToVanishedPeerFailsWithoutSigpipe) {
    // The default action of SIGPIPE ends the process: surviving the writes is the test.
    const auto previous = std::signal(SIGPIPE, SIG_DFL);
    cmtest::LoopbackServer server(SOCK_STREAM);
    RSocket socket("127.0.0.1", server.port(), RSocket::kStream, RSocket::kIPv4);
    ASSERT_EQ(socket.connect(), 0);
    ::close(server.accept());

    int result = 0;
    char block[4096] = {};
    for (int i = 0; i < 1000 && result != -1; ++i) {
        result = i % 2 ? socket.send(block, sizeof block) : socket.write(block, sizeof block);
        usleep(1000);
    }
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET) << std::strerror(errno);
    EXPECT_FALSE(socket.isConnected());
    std::signal(SIGPIPE, previous);
}

TEST(RSocketTest, ReceiveTimeoutEndsWaitOnSilentPeer) {
    cmtest::LoopbackServer server(SOCK_STREAM);
    RSocket socket("127.0.0.1", server.port(), RSocket::kStream, RSocket::kIPv4);
    socket.setReceiveTimeout(50);
    ASSERT_EQ(socket.connect(), 0);
    const int peer = server.accept();
    char buffer[8];
    EXPECT_EQ(socket.read2(buffer, sizeof buffer), -1);
    EXPECT_TRUE(errno == EAGAIN || errno == EWOULDBLOCK);
    EXPECT_TRUE(socket.isConnected());  // a time-out does not lose the peer
    ::close(peer);
}

}  // namespace
