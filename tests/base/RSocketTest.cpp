#include <zr/RSocket.h>

#include "support/Loopback.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>

namespace {

using ZR::RSocket;

TEST(RSocketTest, StreamSocketTalksToListenerWithReceiveTimeout) {
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_STREAM, &port);
    RSocket socket("127.0.0.1", port, RSocket::kStream, RSocket::kIPv4);
    socket.setReceiveTimeout(50);
    ASSERT_EQ(socket.connect(), 0);
    EXPECT_TRUE(socket.isConnected());
    const int peer = ::accept(server, nullptr, nullptr);
    char got[8] = {};
    EXPECT_EQ(socket.read2(got, sizeof got), -1);  // nothing sent yet: the time-out ends it
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(socket.send("hello", 5), 5);
    EXPECT_EQ(::recv(peer, got, sizeof got, MSG_WAITALL | MSG_DONTWAIT), 5);
    EXPECT_STREQ(got, "hello");
    ::send(peer, "bye", 4, 0);
    ::close(peer);
    EXPECT_EQ(socket.read2(got, sizeof got), 4);
    EXPECT_STREQ(got, "bye");
    EXPECT_EQ(socket.read2(got, sizeof got), 0);
    EXPECT_EQ(socket.close(), 0);
    EXPECT_EQ(socket.close(), 0);
    EXPECT_EQ(socket.send("x", 1), -1);
    ::close(server);
}

TEST(RSocketTest, DatagramSocketSendsOneDatagramPerCall) {
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_DGRAM, &port);
    RSocket socket("localhost", port, RSocket::kDatagram, RSocket::kIPv4);
    ASSERT_EQ(socket.connect(), 0);
    EXPECT_EQ(socket.write("abc", 4), 4);
    char got[8];
    EXPECT_EQ(::recv(server, got, sizeof got, 0), 4);
    EXPECT_STREQ(got, "abc");
    ::close(server);
}

TEST(RSocketTest, WriteToPeerThatTakesNoDataEndsAtSendTimeout) {
    // The peer accepts and never reads: once both socket buffers are full a write can only
    // end through the send time-out, with a short count or EAGAIN.
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_STREAM, &port);
    RSocket socket("127.0.0.1", port, RSocket::kStream, RSocket::kIPv4);
    ASSERT_EQ(socket.connect(), 0);
    socket.setSendTimeout(100);
    EXPECT_EQ(socket.getSendTimeout(), 100);
    const int peer = ::accept(server, nullptr, nullptr);
    static char block[1 << 20];
    int result = sizeof block;
    for (int i = 0; i < 256 && result == static_cast<int>(sizeof block); ++i) {
        result = socket.write(block, sizeof block);
    }
    EXPECT_LT(result, static_cast<int>(sizeof block));
    if (result == -1) {
        EXPECT_EQ(errno, EAGAIN);
    }
    EXPECT_TRUE(socket.isConnected());  // a slow peer is not a lost one
    ::close(peer);
    ::close(server);
}

TEST(RSocketTest, RefusedConnectionFails) {
    int port = 0;
    ::close(cmtest::loopbackServer(SOCK_STREAM, &port));
    RSocket socket("127.0.0.1", port, RSocket::kStream, RSocket::kIPv4);
    EXPECT_EQ(socket.connect(), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_FALSE(socket.isConnected());
    EXPECT_EQ(socket.write("x", 1), -1);
    EXPECT_EQ(RSocket("127.0.0.1", port, 3, RSocket::kIPv4).connect(), -1);
}

TEST(RSocketTest, WritingToVanishedPeerFailsWithoutSigpipe) {
    // SIGPIPE's default action ends the process: surviving the writes is the test.
    const auto previous = std::signal(SIGPIPE, SIG_DFL);
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_STREAM, &port);
    RSocket socket("127.0.0.1", port, RSocket::kStream, RSocket::kIPv4);
    ASSERT_EQ(socket.connect(), 0);
    ::close(::accept(server, nullptr, nullptr));
    char block[4096] = {};
    int result = 0;
    for (int i = 0; i < 1000 && result != -1; ++i, usleep(1000)) {
        result = i % 2 ? socket.send(block, sizeof block) : socket.write(block, sizeof block);
    }
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET);
    EXPECT_FALSE(socket.isConnected());
    std::signal(SIGPIPE, previous);
    ::close(server);
}

}  // namespace
