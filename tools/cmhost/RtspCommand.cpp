// cmhost rtsp URL [--user U --password P] [--method M]
//
// Sends one RTSP request (DESCRIBE unless --method says otherwise) through an RTSP session,
// which answers a 401 challenge with the credentials once, and prints the response: the
// status line, the headers and the body.
#include "CommandLine.h"
#include "Commands.h"
#include "Host.h"

#include <cstdio>

namespace cmhost {

namespace {

const char kHelp[] =
    "usage: cmhost rtsp URL [--user U --password P] [--method M] [--timeout MS]\n"
    "\n"
    "  sends one RTSP request (default DESCRIBE) and prints the response; a 401 is\n"
    "  answered once with the credentials; a server that stops answering is given up\n"
    "  after the time-out (default 30000 ms)";
static_assert(ZR::CM::RRTSPSession::kDefaultReceiveTimeout == 30000,
              "the help text names the default time-out");

// Says why connecting failed, so that the command can report it instead of sending into
// a socket that is not there.
class ConnectionWatch : public ZR::CM::CRTSPSessionDelegate {
public:
    int connected(ZR::CM::RRTSPSession*, int result) override {
        mFailed = true;
        return result == 0 ? -1 : result;
    }
    bool failed() const { return mFailed; }

private:
    bool mFailed = false;
};

}  // namespace

int runRtsp(const GlobalOptions& global, const Words& args) {
    const CommandLine line(args, kHelp, {"--user", "--password", "--method", "--timeout"});
    if (line.has("--help")) {
        std::puts(kHelp);
        return 0;
    }
    line.expectPositionals({"URL"});
    const std::string url = line.positional(0, "URL");
    const ZR::RURI uri(url.c_str());
    if (uri.getKind() != 4) {
        throw line.error("not an rtsp:// URL: " + url);
    }
    const Host host(global.config, global.verbose);
    ZR::RPtr<ZR::CM::RRTSPSession> session(new ZR::CM::RRTSPSession(uri));
    ConnectionWatch watch;
    session->setDelegate(&watch);
    session->setUser(ZR::CString(line.value("--user").c_str()));
    session->setPassword(ZR::CString(line.value("--password").c_str()));
    session->setReceiveTimeout(static_cast<int>(
        line.number("--timeout", ZR::CM::RRTSPSession::kDefaultReceiveTimeout, 0, 3600000)));
    if (session->connect() != 0 || watch.failed()) {
        throw HostError(ZR::CM::kResultUnspecified, "cannot connect to " + url);
    }
    ZR::RPtr<ZR::CM::RRTSPRequest> request(
        new ZR::CM::RRTSPRequest(line.value("--method", "DESCRIBE").c_str(), uri));
    const ZR::RPtr<ZR::CM::RRTSPResponse> response = session->sendRequest(*request);
    if (!response || response->getStatus() == 0) {
        throw HostError(ZR::CM::kResultUnspecified, "no RTSP response from " + url);
    }
    std::printf("RTSP/1.0 %u %s\n", response->getStatus(), response->getReason().c_str());
    for (const auto& header : response->getHeaders()) {
        std::printf("%s: %s\n", header.first.c_str(), header.second.c_str());
    }
    const ZR::CBuffer& body = response->getBody();
    if (body.getSize() > 0) {
        std::printf("\n%.*s", body.getSize(), reinterpret_cast<const char*>(body.getData()));
    }
    return response->getStatus() >= 400 ? 1 : 0;
}

}  // namespace cmhost
