#include <zr/RURI.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using ZR::RURI;

TEST(RURITest, ParsesEveryKind) {
    struct {
        const char *text, *scheme, *user, *password, *host;
        int port;
        const char* path;
        int kind;
    } const cases[] = {
        {"", "", "", "", "", 0, "", RURI::kPath},
        {"./odd:name.mov", "", "", "", "", 0, "./odd:name.mov", RURI::kPath},
        {"file:///tmp/a%20b.mov", "file", "", "", "", 0, "/tmp/a%20b.mov", RURI::kFile},
        {"FILE://localhost/x", "FILE", "", "", "localhost", 0, "/x", RURI::kFile},
        {"http://h/a?b#c", "http", "", "", "h", 80, "/a?b#c", RURI::kHTTP},
        {"https://[::1]:8443", "https", "", "", "::1", 8443, "", RURI::kHTTPS},
        {"rtsp://u:p:w@x@cam:8554/live", "rtsp", "u", "p:w@x", "cam", 8554, "/live", RURI::kRTSP},
        {"rtsp://admin@cam/", "rtsp", "admin", "", "cam", 554, "/", RURI::kRTSP},
        {"Rtmp://h:99999/app", "Rtmp", "", "", "h", 1935, "/app", RURI::kRTMP},
        {"firewire://0", "firewire", "", "", "0", 0, "", RURI::kFirewire},
        {"x-v.1+a://h:8a", "x-v.1+a", "", "", "h", 0, "", RURI::kOther},
    };
    for (const auto& c : cases) {
        const RURI uri(c.text);
        EXPECT_STREQ(uri.getString().c_str(), c.text);
        EXPECT_STREQ(uri.getScheme().c_str(), c.scheme) << c.text;
        EXPECT_STREQ(uri.getUser().c_str(), c.user) << c.text;
        EXPECT_STREQ(uri.getPassword().c_str(), c.password) << c.text;
        EXPECT_STREQ(uri.getHost().c_str(), c.host) << c.text;
        EXPECT_EQ(uri.getPort(), c.port) << c.text;
        EXPECT_STREQ(uri.getPath().c_str(), c.path) << c.text;
        EXPECT_EQ(uri.getKind(), c.kind) << c.text;
    }
    const auto socket = RURI("rtsp://10.1.2.3/x").getSocket();
    ASSERT_TRUE(socket);
    EXPECT_STREQ(socket->getHost(), "10.1.2.3");
    EXPECT_EQ(socket->getPort(), 554);
    EXPECT_FALSE(RURI("file:///x").getSocket());
}

}  // namespace
