// The HTTP reader plug-in, reached as every host reaches it: through the stream factory,
// with the registry configured by the build tree's default configuration.
#include <cm/CMPluginStream.h>
#include <cm/CMSysConf.h>

#include "support/HttpServers.h"
#include "support/Loopback.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace {

using cmtest::httpResponse;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using ZR::RPtr;
using ZR::RURI;
using ZR::CM::RStream;
using Bytes = std::vector<unsigned char>;

constexpr long long kWindow = 256 * 1024;  // the reader's read-ahead

class CurlReaderTest : public testing::Test {
protected:
    void SetUp() override {
        // The configuration lies in the build tree as it does in an install, so this also
        // checks that its relative plug-in directory finds the built plug-in.
        ASSERT_TRUE(ZR::CM::sys_conf::instance().load_file(CM_BINARY_DIR "/share/cm/cm.conf",
                                                           CM_BINARY_DIR "/share/cm/"));
        ::setenv("HOME", mHome.path().c_str(), 1);
    }

    static RPtr<RStream> streamFor(const std::string& url) {
        return RStream::getStream(RURI(url.c_str()), 0, 0);
    }

    static RPtr<RStream> openStream(const std::string& url) {
        RPtr<RStream> stream = streamFor(url);
        EXPECT_TRUE(stream);
        EXPECT_EQ(stream->getType(), 6);
        EXPECT_EQ(stream->open(), 0);
        return stream;
    }

    cmtest::TempDir mHome;
};

// Bytes that differ at every offset a reader could confuse with another.
Bytes pattern(size_t size) {
    Bytes bytes(size);
    std::uint64_t state = 0x9E3779B97F4A7C15u;
    for (auto& byte : bytes) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<unsigned char>(state);
    }
    return bytes;
}

using cmtest::writeFile;

// length bytes read at position, or fewer when the stream ends.
Bytes readAt(RStream& stream, long long position, long long length) {
    EXPECT_EQ(stream.lseek(position, 0), position);
    Bytes bytes(static_cast<size_t>(length));
    const long long got = stream.read(bytes.data(), length);
    EXPECT_GE(got, 0);
    bytes.resize(static_cast<size_t>(std::max(got, 0LL)));
    return bytes;
}

Bytes slice(const Bytes& bytes, long long position, long long length) {
    const long long end = std::min<long long>(position + length, bytes.size());
    return Bytes(bytes.begin() + position, bytes.begin() + std::max(end, position));
}

// What a failing open() wrote to standard error, where the reader reports its failures.
std::string openFailure(RStream& stream) {
    CaptureStderr();
    EXPECT_EQ(stream.open(), 169);
    return GetCapturedStderr();
}

// The value of a request header ("Range"), or "" when absent.
std::string header(const std::string& head, const std::string& name) {
    const size_t at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos) {
        return "";
    }
    const size_t begin = at + name.size() + 4;
    return head.substr(begin, head.find("\r\n", begin) - begin);
}

TEST_F(CurlReaderTest, ReadsSeeksAndSizeAgreeWithTheServedFile) {
    cmtest::TempDir root;
    const Bytes content = pattern(5u << 20);
    writeFile(root.file("media.bin"), content);
    cmtest::Nginx nginx(root.path());
    const auto size = static_cast<long long>(content.size());

    const RPtr<RStream> stream = openStream(nginx.url("/media.bin"));
    EXPECT_EQ(stream->size(), size);
    // Reads far apart cost their own neighbourhood, not the resource up to them.
    EXPECT_TRUE(readAt(*stream, 4 << 20, 10) == slice(content, 4 << 20, 10));
    EXPECT_TRUE(readAt(*stream, size - 100, 400) == slice(content, size - 100, 400));
    const long long sent = nginx.bodyBytesSent();
    EXPECT_GE(sent, 110);
    EXPECT_LT(sent, 2 * kWindow);

    // Inside the read-ahead, across its edge, larger than it, and past the end.
    const long long positions[][2] = {
        {0, 1},
        {1, 7},
        {kWindow - 3, 10},
        {kWindow, 1},
        {12345, 3 * kWindow + 17},
        {size - 1, 1},
        {size - 7, 100},
        {size, 10},
        {size + 5, 10},
        {(3 << 20) + 1, 1 << 20},
    };
    for (const auto& at : positions) {
        EXPECT_TRUE(readAt(*stream, at[0], at[1]) == slice(content, at[0], at[1]))
            << "at " << at[0] << " for " << at[1];
    }
    EXPECT_EQ(stream->lseek(100, 0), 100);
    EXPECT_EQ(stream->lseek(-50, 1), 50);
    EXPECT_EQ(stream->lseek(-10, 2), size - 10);

    // The whole resource through the factory's copy, which seeks before every block.
    const RPtr<RStream> copy = RStream::getTempStream();
    EXPECT_EQ(copy->append(stream.addr()), size - 10);  // the source is put back
    EXPECT_EQ(copy->size(), size);
    EXPECT_TRUE(readAt(*copy, 0, size) == content);

    CaptureStderr();
    EXPECT_EQ(stream->lseek(-1, 0), -1);
    EXPECT_EQ(stream->lseek(0, 7), -1);
    EXPECT_EQ(GetCapturedStderr(),
              "read-plugin seek() exception: seek before the start of the resource\n"
              "read-plugin seek() exception: unknown seek type 7\n");
    EXPECT_EQ(stream->close(), 0);
}

TEST_F(CurlReaderTest, MissingResourceAndRefusedConnectionFailToOpen) {
    cmtest::TempDir root;
    cmtest::Nginx nginx(root.path());
    int port = 0;
    ::close(cmtest::loopbackServer(SOCK_STREAM, &port));  // nothing listens there now

    const RPtr<RStream> missing = streamFor(nginx.url("/missing.bin"));
    const RPtr<RStream> refused = streamFor("http://127.0.0.1:" + std::to_string(port) + "/a.mov");
    ASSERT_TRUE(missing && refused);  // nothing is asked of the server before open()
    EXPECT_EQ(openFailure(*missing),
              "read-plugin open() exception: " + nginx.url("/missing.bin") + ": HTTP status 404\n");
    const std::string refusal = openFailure(*refused);
    EXPECT_EQ(refusal.rfind("read-plugin open() exception: ", 0), 0u) << refusal;
    EXPECT_NE(refusal.find(std::to_string(port)), std::string::npos) << refusal;

    // A reader that failed to open refuses everything else, and says so.
    unsigned char byte;
    CaptureStderr();
    EXPECT_EQ(refused->read(&byte, 1), -1);
    EXPECT_EQ(refused->size(), -1);
    EXPECT_EQ(GetCapturedStderr(),
              "read-plugin read() exception: the reader is not open\n"
              "read-plugin seek() exception: the reader is not open\n");
}

TEST_F(CurlReaderTest, ReplyEndingMidBodyOrForOtherBytesFailsTheRead) {
    const std::string body(1000, 'x');
    cmtest::ScriptedHttpServer server([&body](const std::string& head) {
        if (head.rfind("HEAD ", 0) == 0) {
            return httpResponse("200 OK", "Content-Length: 1000\r\n", "");
        }
        if (head.find(" /other ") != std::string::npos) {
            return httpResponse("206 Partial Content",
                                "Content-Range: bytes 0-9/1000\r\nContent-Length: 10\r\n",
                                body.substr(0, 10));
        }
        // Claims the whole range, sends half of it and closes.
        return httpResponse("206 Partial Content",
                            "Content-Range: bytes 0-999/1000\r\nContent-Length: 1000\r\n",
                            body.substr(0, 500));
    });
    unsigned char buffer[100];
    const RPtr<RStream> truncated = openStream(server.url("/truncated"));
    CaptureStderr();
    EXPECT_EQ(truncated->read(buffer, sizeof buffer), -1);
    const std::string early = GetCapturedStderr();
    EXPECT_EQ(early.rfind("read-plugin read() exception: ", 0), 0u) << early;
    EXPECT_EQ(early.find('\n'), early.size() - 1) << early;

    const RPtr<RStream> other = openStream(server.url("/other"));
    EXPECT_EQ(other->lseek(600, 0), 600);
    CaptureStderr();
    EXPECT_EQ(other->read(buffer, sizeof buffer), -1);
    EXPECT_EQ(GetCapturedStderr(), "read-plugin read() exception: " + server.url("/other") +
                                       ": the server sent bytes from 0 instead of 600\n");
}

TEST_F(CurlReaderTest, ServersWithoutHeadOrRangesStillServeEveryByte) {
    const Bytes content = pattern(3000);
    const std::string body(content.begin(), content.end());
    cmtest::ScriptedHttpServer server([&body](const std::string& head) {
        if (head.rfind("HEAD ", 0) == 0) {
            return httpResponse("405 Method Not Allowed", "Content-Length: 0\r\n", "");
        }
        long long first = 0;
        long long last = 0;
        const std::string range = header(head, "Range");
        if (head.find(" /ranged ") == std::string::npos ||
            std::sscanf(range.c_str(), "bytes=%lld-%lld", &first, &last) != 2) {
            return httpResponse("200 OK", "Content-Length: 3000\r\n", body);
        }
        last = std::min<long long>(last, 2999);
        return httpResponse(
            "206 Partial Content",
            "Content-Range: bytes " + std::to_string(first) + "-" + std::to_string(last) +
                "/3000\r\nContent-Length: " + std::to_string(last - first + 1) + "\r\n",
            body.substr(first, last - first + 1));
    });
    for (const char* path : {"/ranged", "/whole"}) {
        const RPtr<RStream> stream = openStream(server.url(path));
        EXPECT_EQ(stream->size(), 3000) << path;
        EXPECT_TRUE(readAt(*stream, 2500, 100) == slice(content, 2500, 100)) << path;
        EXPECT_TRUE(readAt(*stream, 7, 3000) == slice(content, 7, 3000)) << path;
        EXPECT_TRUE(readAt(*stream, 3000, 1).empty()) << path;
    }
}

// Redirects are followed to at most ten hops, only to http and https, and never twice
// to the same URL; a failure names the URL the reader had reached, without credentials.
TEST_F(CurlReaderTest, RedirectsAreFollowedWithinLimits) {
    cmtest::ScriptedHttpServer server([](const std::string& head) {
        const std::string path =
            head.substr(head.find(' ') + 1, head.find(" HTTP/") - head.find(' ') - 1);
        const auto redirect = [](const std::string& status, const std::string& location) {
            return httpResponse(status, "Location: " + location + "\r\nContent-Length: 0\r\n", "");
        };
        if (path.rfind("/chain/", 0) == 0) {
            const int hops = std::stoi(path.substr(7));
            return hops == 0 ? httpResponse("200 OK", "Content-Length: 4\r\n", "done")
                             : redirect("302 Found", "/chain/" + std::to_string(hops - 1));
        }
        const std::map<std::string, std::string> routes = {
            {"/relative/x", redirect("303 See Other", "../chain/2")},
            {"/loop/a", redirect("301 Moved Permanently", "/loop/b")},
            {"/loop/b",
             redirect("307 Temporary Redirect", "http://" + header(head, "Host") + "/loop/a")},
            {"/ftp", redirect("302 Found", "ftp://127.0.0.1/file")},
            {"/malformed", redirect("302 Found", "http://bad host/")},
            {"/gone", redirect("308 Permanent Redirect", "/missing")},
        };
        const auto route = routes.find(path);
        return route != routes.end() ? route->second
                                     : httpResponse("404 Not Found", "Content-Length: 0\r\n", "");
    });
    const struct {
        const char* path;
        const char* failedAt;  // null when the resource is reached
        std::string reason;
    } rows[] = {
        {"/chain/10", nullptr, ""},
        {"/relative/x", nullptr, ""},
        {"/chain/11", "/chain/1", "more than 10 redirects"},
        {"/loop/a", "/loop/b", "redirect loop back to " + server.url("/loop/a")},
        {"/ftp", "/ftp", "redirect to ftp://127.0.0.1/file, which is neither http nor https"},
        {"/malformed", "/malformed", "malformed redirect to \"http://bad host/\""},
        {"/gone", "/missing", "HTTP status 404"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        if (!row.failedAt) {
            const RPtr<RStream> stream = openStream(server.url(row.path));
            EXPECT_EQ(stream->size(), 4);
            EXPECT_TRUE(readAt(*stream, 0, 10) == Bytes({'d', 'o', 'n', 'e'}));
            continue;
        }
        EXPECT_EQ(
            openFailure(*streamFor(server.url(row.path))),
            "read-plugin open() exception: " + server.url(row.failedAt) + ": " + row.reason + "\n");
    }

    // Nor does an error show the password of a URL.
    EXPECT_EQ(openFailure(*streamFor("http://user:secret@" + server.url("/gone").substr(7))),
              "read-plugin open() exception: " + server.url("/missing") + ": HTTP status 404\n");
}

// Found by the http_reader fuzz target: with libcurl 7.88, a reply whose first header line
// is a continuation line wrote to freed memory when the reader's libcurl handle had served
// an earlier request. The saved exchange (a malformed redirect, then such a reply) is
// replayed byte for byte as the fuzz target does, and then its essence: any first request,
// then a reply that opens with a continuation line. Both fail cleanly; the sanitizer build
// catches a relapse.
TEST_F(CurlReaderTest, ReplyOpeningWithAContinuationLineFailsCleanly) {
    std::deque<std::string> replies;
    const std::string saved = cmtest::readText(
        CM_SOURCE_DIR "/fuzz/corpus/http_reader/regression_continuation_after_reused_handle");
    for (size_t at = 4; at < saved.size();) {  // the first four bytes choose the read size
        const size_t nul = std::min(saved.find('\0', at), saved.size());
        replies.push_back(saved.substr(at, nul - at));
        at = nul + 1;
    }
    std::mutex mutex;
    cmtest::ScriptedHttpServer server([&](const std::string&) {
        std::lock_guard<std::mutex> lock(mutex);
        std::string reply;
        if (!replies.empty()) {
            reply = std::move(replies.front());
            replies.pop_front();
        }
        return reply;
    });
    EXPECT_EQ(openFailure(*streamFor(server.url("/media"))),
              "read-plugin open() exception: " + server.url("/media") +
                  ": malformed redirect to \"http://elsewhere.inVal8888888 0\"\n");

    {
        std::lock_guard<std::mutex> lock(mutex);
        replies = {httpResponse("200 OK", "Content-Length: 100\r\nX-Last: header\r\n", ""),
                   "HTTP/1.1 206 Partial Content\r\n x: y\r\nContent-Length: 0\r\n\r\n"};
    }
    const RPtr<RStream> stream = openStream(server.url("/media"));
    unsigned char buffer[10];
    CaptureStderr();
    EXPECT_EQ(stream->read(buffer, sizeof buffer), -1);
    const std::string message = GetCapturedStderr();
    EXPECT_EQ(message.rfind("read-plugin read() exception: " + server.url("/media") + ": ", 0), 0u)
        << message;
}

}  // namespace
