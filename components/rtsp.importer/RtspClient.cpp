#include "rtsp.importer/RtspClient.h"

#include <cm/CMComponentStatus.h>

extern "C" {
#include <libavutil/md5.h>
}

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <sstream>
#include <thread>

using ZR::RPtr;
using ZR::CM::RRTSPRequest;
using ZR::CM::RRTSPResponse;
using ZR::CM::RRTSPSession;

namespace cmcomponents {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int kUnauthorized = 401;
constexpr unsigned int kUnsupportedTransport = 461;
constexpr unsigned int kServiceUnavailable = 503;
constexpr std::chrono::milliseconds kBusyPause(250);
// A teardown is a courtesy: the reply is not worth a long wait.
constexpr int kTeardownTimeout = 2000;

std::string percentDecoded(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() &&
            std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

// The URL without the "user:password@" of its authority.
std::string withoutCredentials(const std::string& url) {
    const std::size_t scheme = url.find("://");
    if (scheme == std::string::npos) {
        return url;
    }
    const std::size_t authority = scheme + 3;
    const std::size_t path = url.find('/', authority);
    const std::size_t at = url.rfind('@', path == std::string::npos ? std::string::npos : path);
    if (at == std::string::npos || at < authority) {
        return url;
    }
    return url.substr(0, authority) + url.substr(at + 1);
}

// A header of a reply, its name compared without regard to case; "" when absent.
std::string headerOf(const RRTSPResponse& response, const char* name) {
    for (const auto& [key, value] : response.getHeaders()) {
        if (strcasecmp(key.c_str(), name) == 0) {
            return value.c_str();
        }
    }
    return "";
}

// The value of "name=value" in a header of ';'-separated items, "" when absent.
std::string itemOf(const std::string& header, const char* name) {
    const std::string wanted = std::string(name) + "=";
    std::size_t start = 0;
    while (start <= header.size()) {
        const std::size_t end = std::min(header.find(';', start), header.size());
        std::string item = header.substr(start, end - start);
        item.erase(0, item.find_first_not_of(' '));
        if (strncasecmp(item.c_str(), wanted.c_str(), wanted.size()) == 0) {
            return item.substr(wanted.size());
        }
        start = end + 1;
    }
    return "";
}

// "a-b" into two numbers; false when it is not that.
bool readPair(const std::string& text, int pair[2]) {
    int first = 0;
    int second = 0;
    if (std::sscanf(text.c_str(), "%d-%d", &first, &second) != 2 || first < 0 || second < 0 ||
        first > 65535 || second > 65535) {
        return false;
    }
    pair[0] = first;
    pair[1] = second;
    return true;
}

// The parameters of a challenge ("Digest realm=\"x\", nonce=\"y\", qop=\"auth\""), names in
// lower case.
std::map<std::string, std::string> challengeParameters(const std::string& text) {
    std::map<std::string, std::string> parameters;
    std::size_t i = text.find(' ');
    while (i != std::string::npos && i < text.size()) {
        i = text.find_first_not_of(" ,\t", i);
        if (i == std::string::npos) {
            break;
        }
        const std::size_t equals = text.find('=', i);
        if (equals == std::string::npos) {
            break;
        }
        std::string name = text.substr(i, equals - i);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        std::string value;
        i = equals + 1;
        if (i < text.size() && text[i] == '"') {
            const std::size_t close = text.find('"', i + 1);
            value =
                text.substr(i + 1, close == std::string::npos ? std::string::npos : close - i - 1);
            i = close == std::string::npos ? close : close + 1;
        } else {
            const std::size_t comma = text.find(',', i);
            value = text.substr(i, comma == std::string::npos ? std::string::npos : comma - i);
            i = comma;
        }
        parameters[name] = value;
    }
    return parameters;
}

std::string md5Hex(const std::string& text) {
    unsigned char digest[16];
    av_md5_sum(digest, reinterpret_cast<const unsigned char*>(text.data()), text.size());
    char hex[33];
    for (int i = 0; i < 16; ++i) {
        std::snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    }
    return std::string(hex, 32);
}

std::string bodyOf(const RRTSPResponse& response) {
    const ZR::CBuffer& body = response.getBody();
    return std::string(reinterpret_cast<const char*>(body.getData()),
                       static_cast<std::size_t>(std::max(body.getSize(), 0)));
}

}  // namespace

CRtspClient::CRtspClient(const std::string& url, int timeoutMilliseconds)
    : mUrl(withoutCredentials(url)), mTimeout(timeoutMilliseconds) {
    const ZR::RURI uri(url.c_str());
    mUser = percentDecoded(uri.getUser().c_str());
    mPassword = percentDecoded(uri.getPassword().c_str());
}

int CRtspClient::connected(RRTSPSession*, int result) {
    return result == 0 ? -1 : result;
}

int CRtspClient::describe(std::string& sdp, std::string& why) {
    mSession = new RRTSPSession(ZR::RURI(mUrl.c_str()));
    mSession->setDelegate(this);
    mSession->setUser(mUser.c_str());
    mSession->setPassword(mPassword.c_str());
    mSession->setReceiveTimeout(mTimeout);
    if (mSession->connect() != 0) {
        why = "cannot connect to " + mUrl;
        return ZR::CM::kResultFileOpenFailed;
    }
    int result = ZR::CM::kResultOK;
    RPtr<RRTSPResponse> options = exchange("OPTIONS", mUrl, {}, result, why);
    // A server that takes no OPTIONS may still describe; one that answers no RTSP won't.
    if (result == ZR::CM::kResultFileReadFailed) {
        return result;
    }
    mGetParameter =
        options && headerOf(*options, "Public").find("GET_PARAMETER") != std::string::npos;
    // A server still tearing down the media of an earlier client may be busy for a moment.
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(mTimeout);
    RPtr<RRTSPResponse> reply;
    while (!(reply = exchange("DESCRIBE", mUrl, {"Accept: application/sdp"}, result, why)) &&
           mLastStatus == kServiceUnavailable && Clock::now() + kBusyPause < deadline) {
        std::this_thread::sleep_for(kBusyPause);
    }
    if (!reply) {
        return result;
    }
    sdp = bodyOf(*reply);
    const int length = reply->getContentLength();
    if (length > static_cast<int>(kMaxDescription)) {
        why = "the session description of " + mUrl + " claims " + std::to_string(length) +
              " bytes, more than the " + std::to_string(kMaxDescription) + " taken";
        return ZR::CM::kResultInputMetaDataParseFailed;
    }
    if (length >= 0 && (result = readBody(sdp, length, why)) != ZR::CM::kResultOK) {
        return result;
    }
    mBase = headerOf(*reply, "Content-Base");
    if (mBase.empty()) {
        mBase = headerOf(*reply, "Content-Location");
    }
    if (mBase.empty()) {
        mBase = mUrl;
    }
    return ZR::CM::kResultOK;
}

int CRtspClient::readBody(std::string& body, int length, std::string& why) {
    const auto wanted = static_cast<std::size_t>(length);
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(mTimeout);
    char buffer[4096];
    while (body.size() < wanted && Clock::now() < deadline) {
        const int got = socket()->read2(
            buffer, static_cast<int>(std::min(sizeof buffer, wanted - body.size())));
        if (got <= 0) {
            break;
        }
        body.append(buffer, static_cast<std::size_t>(got));
    }
    if (body.size() < wanted) {
        why = "the session description of " + mUrl + " was cut short after " +
              std::to_string(body.size()) + " of " + std::to_string(wanted) + " bytes";
        return ZR::CM::kResultFileReadFailed;
    }
    body.resize(wanted);
    return ZR::CM::kResultOK;
}

std::string CRtspClient::controlUrl(const std::string& control) const {
    if (control.empty() || control == "*") {
        return mBase;
    }
    if (control.compare(0, 7, "rtsp://") == 0 || control.compare(0, 8, "rtsps://") == 0) {
        return control;
    }
    return mBase + (!mBase.empty() && mBase.back() == '/' ? "" : "/") + control;
}

RPtr<RRTSPRequest> CRtspClient::makeRequest(const char* method, const std::string& url) {
    RPtr<RRTSPRequest> request(new RRTSPRequest(method, ZR::RURI(url.c_str())));
    if (!mSessionId.empty()) {
        request->addHeader("Session", mSessionId.c_str());
    }
    if (mDigest) {
        request->addHeader("Authorization", digestAuthorization(method, url).c_str());
    }
    return request;
}

RPtr<RRTSPResponse> CRtspClient::exchange(const char* method, const std::string& url,
                                          const std::vector<std::string>& headers, int& result,
                                          std::string& why) {
    RPtr<RRTSPResponse> response;
    // The second round answers a Digest challenge of the first.
    for (int round = 0; round < 2; ++round) {
        RPtr<RRTSPRequest> request = makeRequest(method, url);
        for (const std::string& header : headers) {
            const std::size_t colon = header.find(':');
            request->addHeader(header.substr(0, colon).c_str(), header.substr(colon + 2).c_str());
        }
        mNewChallenge = false;
        response = mSession->sendRequest(*request);
        mLastRequest = Clock::now();
        if (!response || response->getStatus() != kUnauthorized || !mNewChallenge ||
            mUser.empty()) {
            break;
        }
        mDigest = true;
    }
    mLastStatus = response ? response->getStatus() : 0;
    if (mLastStatus >= 200 && mLastStatus < 300) {
        result = ZR::CM::kResultOK;
        return response;
    }
    if (mLastStatus == 0) {
        why = std::string(method) + " " + url + ": no RTSP reply";
        result = ZR::CM::kResultFileReadFailed;
        return nullptr;
    }
    why = std::string(method) + " " + url + ": " + std::to_string(mLastStatus) + " " +
          response->getReason().c_str();
    if (mLastStatus == kUnauthorized) {
        why += mUser.empty() ? " (give the user and password in the URL)"
                             : " (the user or password is not accepted)";
    }
    result = ZR::CM::kResultFileOpenFailed;
    return nullptr;
}

bool CRtspClient::shouldAuthenticate(RRTSPSession*, RRTSPRequest*, RRTSPResponse* response) {
    const std::string challenge = headerOf(*response, "WWW-Authenticate");
    if (strncasecmp(challenge.c_str(), "Digest", 6) != 0) {
        return true;  // Basic: the session answers it
    }
    const std::map<std::string, std::string> parameters = challengeParameters(challenge);
    auto parameter = [&parameters](const char* name) {
        const auto found = parameters.find(name);
        return found == parameters.end() ? std::string() : found->second;
    };
    mChallenge =
        Challenge{parameter("realm"), parameter("nonce"), parameter("opaque"),
                  parameter("algorithm"), parameter("qop").find("auth") != std::string::npos};
    mNonceCount = 0;
    mNewChallenge = true;
    return false;
}

std::string CRtspClient::digestAuthorization(const char* method, const std::string& url) {
    const Challenge& c = mChallenge;
    const std::string user = mUser + ":" + c.realm + ":" + mPassword;
    const std::string first = md5Hex(user);
    const std::string second = md5Hex(std::string(method) + ":" + url);
    std::string text = "Digest username=\"" + mUser + "\", realm=\"" + c.realm + "\", nonce=\"" +
                       c.nonce + "\", uri=\"" + url + "\"";
    if (c.qop) {
        char count[9];
        std::snprintf(count, sizeof count, "%08x", ++mNonceCount);
        char cnonce[17];
        std::snprintf(
            cnonce, sizeof cnonce, "%016llx",
            static_cast<unsigned long long>(std::random_device()()) << 32 | std::random_device()());
        text += ", response=\"" +
                md5Hex(first + ":" + c.nonce + ":" + count + ":" + cnonce + ":auth:" + second) +
                "\", qop=auth, nc=" + count + ", cnonce=\"" + cnonce + "\"";
    } else {
        text += ", response=\"" + md5Hex(first + ":" + c.nonce + ":" + second) + "\"";
    }
    if (!c.opaque.empty()) {
        text += ", opaque=\"" + c.opaque + "\"";
    }
    if (!c.algorithm.empty()) {
        text += ", algorithm=" + c.algorithm;
    }
    return text;
}

void CRtspClient::noteSession(const RRTSPResponse& response) {
    const std::string session = headerOf(response, "Session");
    if (session.empty()) {
        return;
    }
    mSessionId = session.substr(0, session.find(';'));
    const long timeout = std::strtol(itemOf(session, "timeout").c_str(), nullptr, 10);
    mSessionTimeout = timeout >= 2 && timeout <= 3600 ? static_cast<int>(timeout) : 60;
}

int CRtspClient::setup(const std::string& url, const std::string& transport, Transport& reply,
                       bool& refused, std::string& why) {
    int result = ZR::CM::kResultOK;
    RPtr<RRTSPResponse> response = exchange("SETUP", url, {"Transport: " + transport}, result, why);
    refused = mLastStatus == kUnsupportedTransport;
    if (!response) {
        return result;
    }
    noteSession(*response);
    const std::string header = headerOf(*response, "Transport");
    reply = Transport();
    reply.interleaved = readPair(itemOf(header, "interleaved"), reply.channels);
    readPair(itemOf(header, "server_port"), reply.serverPorts);
    if (mSessionId.empty()) {
        why = "SETUP " + url + ": the reply names no session";
        return ZR::CM::kResultFileReadFailed;
    }
    return ZR::CM::kResultOK;
}

int CRtspClient::play(const std::string& url, std::vector<StreamStart>& starts,
                      std::vector<unsigned char>& early, std::string& why) {
    int result = ZR::CM::kResultOK;
    RPtr<RRTSPResponse> response = exchange("PLAY", url, {"Range: npt=0.000-"}, result, why);
    if (!response) {
        return result;
    }
    mPlayUrl = url;
    starts.clear();
    std::istringstream entries(headerOf(*response, "RTP-Info"));
    std::string entry;
    while (std::getline(entries, entry, ',')) {
        const std::string rtptime = itemOf(entry, "rtptime");
        char* end = nullptr;
        const unsigned long value = std::strtoul(rtptime.c_str(), &end, 10);
        if (!rtptime.empty() && *end == '\0' && value <= 0xFFFFFFFFul) {
            starts.push_back(StreamStart{itemOf(entry, "url"), static_cast<std::uint32_t>(value)});
        }
    }
    const std::string body = bodyOf(*response);
    const std::size_t skip = static_cast<std::size_t>(std::max(response->getContentLength(), 0));
    if (body.size() > skip) {
        early.assign(body.begin() + static_cast<std::ptrdiff_t>(skip), body.end());
    }
    return ZR::CM::kResultOK;
}

void CRtspClient::keepAlive(bool interleaved) {
    const auto interval = std::chrono::seconds(std::max(mSessionTimeout / 2, 1));
    if (!mSession || mSessionId.empty() || Clock::now() - mLastRequest < interval) {
        return;
    }
    const char* method = mGetParameter ? "GET_PARAMETER" : "OPTIONS";
    if (interleaved) {
        mSession->postRequest(*makeRequest(method, mPlayUrl));
        mLastRequest = Clock::now();
        return;
    }
    int result = 0;
    std::string ignored;
    exchange(method, mPlayUrl, {}, result, ignored);
}

void CRtspClient::teardown(bool interleaved) {
    if (!mSession || mSessionId.empty()) {
        return;
    }
    if (interleaved) {
        mSession->postRequest(*makeRequest("TEARDOWN", mPlayUrl));
    } else {
        mSession->setReceiveTimeout(std::min(mTimeout, kTeardownTimeout));
        int result = 0;
        std::string ignored;
        exchange("TEARDOWN", mPlayUrl, {}, result, ignored);
        mSession->setReceiveTimeout(mTimeout);
    }
    mSessionId.clear();
}

}  // namespace cmcomponents
