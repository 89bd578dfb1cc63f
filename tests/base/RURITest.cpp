#include <zr/RURI.h>

#include "support/Loopback.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>
#include <random>
#include <string>

namespace {

using ZR::RURI;

struct Expected {
    const char* text;
    int kind;
    const char* scheme;
    const char* host;
    int port;
    const char* path;
};

TEST(RURITest, ParsesEveryKind) {
    const Expected cases[] = {
        {"", RURI::kPath, "", "", 0, ""},
        {"/media/clip.mov", RURI::kPath, "", "", 0, "/media/clip.mov"},
        {"clips/a b.mov", RURI::kPath, "", "", 0, "clips/a b.mov"},
        {"./odd:name.mov", RURI::kPath, "", "", 0, "./odd:name.mov"},
        {"file:///tmp/a%20b.mov", RURI::kFile, "file", "", 0, "/tmp/a%20b.mov"},
        {"FILE://localhost/tmp/x", RURI::kFile, "FILE", "localhost", 0, "/tmp/x"},
        {"file:/tmp/x", RURI::kFile, "file", "", 0, "/tmp/x"},
        {"http://example.com/a?b=c#d", RURI::kHTTP, "http", "example.com", 80, "/a?b=c#d"},
        {"https://example.com", RURI::kHTTPS, "https", "example.com", 443, ""},
        {"rtsp://10.0.0.7:8554/live", RURI::kRTSP, "rtsp", "10.0.0.7", 8554, "/live"},
        {"rtsp://cam/live", RURI::kRTSP, "rtsp", "cam", 554, "/live"},
        {"Rtmp://media.example/app", RURI::kRTMP, "Rtmp", "media.example", 1935, "/app"},
        {"firewire://0", RURI::kFirewire, "firewire", "0", 0, ""},
        {"ftp://host:21/f", RURI::kOther, "ftp", "host", 21, "/f"},
        {"x-vnd.io+v2:opaque", RURI::kOther, "x-vnd.io+v2", "", 0, "opaque"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const RURI uri(c.text);
        EXPECT_STREQ(uri.getString().c_str(), c.text);
        EXPECT_EQ(uri.getKind(), c.kind);
        EXPECT_STREQ(uri.getScheme().c_str(), c.scheme);
        EXPECT_STREQ(uri.getHost().c_str(), c.host);
        EXPECT_EQ(uri.getPort(), c.port);
        EXPECT_STREQ(uri.getPath().c_str(), c.path);
    }
}

TEST(RURITest, SplitsAuthorityAndRejectsBadPorts) {
    const RURI full("rtsp://user:pa:ss@w@cam.local:8554/live");
    EXPECT_STREQ(full.getUser().c_str(), "user");
    EXPECT_STREQ(full.getPassword().c_str(), "pa:ss@w");
    EXPECT_STREQ(full.getHost().c_str(), "cam.local");
    EXPECT_EQ(full.getPort(), 8554);

    const RURI v6("http://[::1]:8080/x");
    EXPECT_STREQ(v6.getHost().c_str(), "::1");
    EXPECT_EQ(v6.getPort(), 8080);

    const RURI userOnly("rtsp://admin@cam");
    EXPECT_STREQ(userOnly.getUser().c_str(), "admin");
    EXPECT_STREQ(userOnly.getPassword().c_str(), "");

    for (const char* bad : {"http://h:99999/", "http://h:8a/", "http://h:/", "http://h:123456"}) {
        EXPECT_EQ(RURI(bad).getPort(), 80) << bad;
        EXPECT_STREQ(RURI(bad).getHost().c_str(), "h") << bad;
    }
    EXPECT_EQ(RURI("foo://h").getPort(), 0);
}

TEST(RURITest, GarbageIsKeptWholeAndNeverOverrun) {
    std::vector<std::string> texts = {":",
                                      "://",
                                      "a:",
                                      "a://",
                                      "http://",
                                      "http://@",
                                      "http://:",
                                      "http://[",
                                      "http://[::1",
                                      "http://[]:",
                                      "http://u:@:/",
                                      "rtsp://@@@:::",
                                      std::string(5000, '/'),
                                      "1http://x"};
    const std::string sample = "rtsp://u:p@[fe80::1]:554/a?b#c";
    for (size_t i = 0; i <= sample.size(); ++i) {
        texts.push_back(sample.substr(0, i));
    }
    std::mt19937 random(7);
    const char alphabet[] = "ab:/@[]?#%.0123456789";
    for (int i = 0; i < 2000; ++i) {
        std::string text;
        for (int n = static_cast<int>(random() % 24); n > 0; --n) {
            text += alphabet[random() % (sizeof alphabet - 1)];
        }
        texts.push_back(text);
    }
    for (const auto& text : texts) {
        const RURI uri(text.c_str());
        ASSERT_EQ(uri.getString().c_str(), text) << text;
        ASSERT_GE(uri.getKind(), RURI::kOther);
        ASSERT_LE(uri.getPath().getLength(), static_cast<int>(text.size()));
        ASSERT_GE(uri.getPort(), 0);
        ASSERT_LE(uri.getPort(), 65535);
    }
    EXPECT_STREQ(RURI(nullptr).getString().c_str(), "");
}

TEST(RURITest, GetSocketConnectsToHostAndPort) {
    cmtest::LoopbackServer server(SOCK_STREAM);
    const RURI uri(("rtsp://127.0.0.1:" + std::to_string(server.port()) + "/x").c_str());
    const auto socket = uri.getSocket();
    ASSERT_TRUE(socket);
    EXPECT_STREQ(socket->getHost(), "127.0.0.1");
    EXPECT_EQ(socket->getType(), ZR::RSocket::kStream);
    EXPECT_FALSE(socket->isConnected());
    ASSERT_EQ(socket->connect(), 0);
    ::close(server.accept());

    EXPECT_EQ(RURI("rtsp://cam/x").getSocket()->getPort(), 554);
    EXPECT_FALSE(RURI("/tmp/x").getSocket());
    EXPECT_FALSE(RURI("file:///tmp/x").getSocket());
    EXPECT_FALSE(RURI("foo://host/x").getSocket());
}

}  // namespace
