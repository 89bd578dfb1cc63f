#include <cm/CMRTSP.h>

#include <zrbase/string_with_format.h>

#include <strings.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace ZR {
namespace CM {

namespace {

const char kUserAgent[] = "Vandrel Solvane Engine";
constexpr int kUnauthorized = 401;

CString slice(const char* begin, const char* end) {
    return CString(std::string(begin, end).c_str());
}

// atoi without its undefined overflow: out-of-range numbers stop at INT_MIN or INT_MAX.
int parseInt(const CString& text) {
    const long value = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

// One line of received bytes: [begin, end) is its text, next where the following line
// starts. A line ends in "\r\n", "\r" or "\n".
struct Line {
    int begin;
    int end;
    int next;
};

// The complete line starting at `start`, or false when no line end has arrived yet. While
// more bytes may come (`complete` false), a "\r" as the last byte after some text may still
// be the first half of "\r\n" and does not end that line yet. A "\r" that starts a line is
// an empty line at once: the header block ends there, whatever follows it.
bool lineAt(const char* bytes, int length, int start, bool complete, Line* line) {
    for (int i = start; i < length; ++i) {
        if (bytes[i] != '\r' && bytes[i] != '\n') {
            continue;
        }
        if (bytes[i] == '\r' && i + 1 == length && i > start && !complete) {
            return false;
        }
        const bool pair = bytes[i] == '\r' && i + 1 < length && bytes[i + 1] == '\n';
        *line = Line{start, i, i + (pair ? 2 : 1)};
        return true;
    }
    return false;
}

// Scans the complete lines from *lineStart on. Returns the offset just past the empty line
// that ends the header block, or -1 while it has not arrived; *lineStart is left at the
// first line not yet complete, so that the next call goes on from there.
int findHeaderEnd(const char* bytes, int length, int* lineStart) {
    Line line;
    while (lineAt(bytes, length, *lineStart, false, &line)) {
        *lineStart = line.next;
        if (line.end == line.begin) {
            return line.next;
        }
    }
    return -1;
}

// Bounds the reading of one reply by the socket's receive time-out as a whole, not per
// read, so that a server trickling bytes cannot stretch it; restores the time-out after.
class ReplyDeadline {
public:
    explicit ReplyDeadline(RSocket& socket)
        : mSocket(socket),
          mTimeout(socket.getReceiveTimeout()),
          mDeadline(Clock::now() + std::chrono::milliseconds(mTimeout)) {}
    ~ReplyDeadline() { mSocket.setReceiveTimeout(mTimeout); }
    ReplyDeadline(const ReplyDeadline&) = delete;
    ReplyDeadline& operator=(const ReplyDeadline&) = delete;

    // Gives the next read what is left of the time; false when nothing is left.
    bool arm() {
        if (mTimeout == 0) {
            return true;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(mDeadline - Clock::now());
        if (left.count() <= 0) {
            return false;
        }
        mSocket.setReceiveTimeout(static_cast<int>(left.count()));
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;
    RSocket& mSocket;
    const int mTimeout;
    const Clock::time_point mDeadline;
};

// The value of parameter `name` in an authentication challenge: found by a plain search
// for the name, which may also match inside a longer name ("nonce" in "cnonce"), then
// written name="value" or name=value. Empty when the name is absent or not followed by
// '='.
std::string challengeParameter(const char* challenge, const char* name) {
    const char* found = std::strstr(challenge, name);
    const char* value = found ? found + std::strlen(name) : nullptr;
    if (!value || *value != '=') {
        return std::string();
    }
    ++value;
    if (*value == '"') {
        ++value;
        const char* close = std::strchr(value, '"');
        return std::string(value, close ? close : value + std::strlen(value));
    }
    return std::string(value, value + std::strcspn(value, ", \t"));
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// RRTSPRequest

RRTSPRequest::RRTSPRequest(const CString& method, const RURI& uri) : mMethod(method), mURI(uri) {}

RRTSPRequest::RRTSPRequest(const char* method, const RURI& uri) : mMethod(method), mURI(uri) {}

void RRTSPRequest::addHeader(const CString& name, const CString& value) {
    mHeaders.emplace(name, value);
}

void RRTSPRequest::setBody(const char* text) {
    mBody.clear();
    if (text) {
        mBody.append(static_cast<int>(std::strlen(text)) + 1,
                     reinterpret_cast<const unsigned char*>(text));
    }
}

int RRTSPRequest::sendRequest(RPtr<RSocket>& socket) {
    if (!socket || !socket->isConnected()) {
        return 0;
    }
    std::string text =
        zrbase::string_with_format("%s %s RTSP/1.0\r\nUser-Agent: %s\r\n", mMethod.c_str(),
                                   mURI.getString().c_str(), kUserAgent);
    for (const auto& [name, value] : mHeaders) {
        text += zrbase::string_with_format("%s: %s\r\n", name.c_str(), value.c_str());
    }
    const int bodyLength = mBody.getSize() - 1;
    if (bodyLength >= 0) {
        text += zrbase::string_with_format("%s: %d\r\n", "Content-Length", bodyLength);
    }
    text += "\r\n";
    socket->send(text.data(), static_cast<int>(text.size()));
    if (bodyLength > 0) {
        socket->send(mBody.getData(), bodyLength);
    }
    return 0;
}

// ---------------------------------------------------------------------------------------------
// RRTSPResponse

RPtr<RRTSPResponse> RRTSPResponse::createWithSocket(RPtr<RSocket>& socket) {
    RPtr<RRTSPResponse> response(new RRTSPResponse());
    if (!socket) {
        return response;
    }
    char buffer[kBufferSize];
    int received = 0;
    int lineStart = 0;
    int headerEnd = -1;
    bool timedOut = false;
    {
        ReplyDeadline deadline(*socket);
        while (headerEnd == -1 && received < kBufferSize) {
            if (!deadline.arm()) {
                timedOut = true;
                break;
            }
            const int got = socket->read2(buffer + received, kBufferSize - received);
            if (got <= 0) {
                timedOut = got == -1 && (errno == EAGAIN || errno == EWOULDBLOCK);
                break;
            }
            received += got;
            headerEnd = findHeaderEnd(buffer, received, &lineStart);
        }
    }
    // The rest of a late reply may still come: the connection is closed, so that it can
    // never be read as the reply to a later request.
    if (timedOut) {
        socket->close();
    }
    response->parse(buffer, received, headerEnd);
    return response;
}

void RRTSPResponse::parse(const char* bytes, int length, int headerEnd) {
    const int headerLength = headerEnd == -1 ? length : headerEnd;
    Line line;
    for (int start = 0; lineAt(bytes, headerLength, start, true, &line); start = line.next) {
        if (line.end == line.begin) {
            break;
        }
        parseLine(bytes + line.begin, line.end - line.begin);
    }
    if (headerEnd != -1) {
        mBody.append(length - headerEnd, reinterpret_cast<const unsigned char*>(bytes + headerEnd));
    }
}

void RRTSPResponse::parseLine(const char* line, int length) {
    static constexpr char kVersion[] = "RTSP/1.0";
    static constexpr int kVersionLength = sizeof kVersion - 1;
    static constexpr int kStatusColumn = 9;
    static constexpr int kReasonColumn = 13;
    const char* const end = line + length;
    if (mStatus == 0) {
        if (length >= kVersionLength && std::memcmp(line, kVersion, kVersionLength) == 0) {
            // A line cut short gives status 0 or an empty reason rather than a read past it.
            if (length > kStatusColumn) {
                mStatus = static_cast<std::uint16_t>(parseInt(slice(line + kStatusColumn, end)));
            }
            mReason = length > kReasonColumn ? slice(line + kReasonColumn, end) : CString();
        }
        return;
    }
    const char* colon = static_cast<const char*>(std::memchr(line, ':', length));
    if (!colon) {
        return;
    }
    // The value is assumed to follow the colon after exactly one blank.
    CString name = slice(line, colon);
    CString value = slice(std::min(colon + 2, end), end);
    if (strcasecmp(name.c_str(), "Content-Length") == 0) {
        mContentLength = parseInt(value);
    }
    mHeaders.emplace(std::move(name), std::move(value));
}

CString RRTSPResponse::getHeader(const char* name) const {
    const auto found = mHeaders.find(CString(name));
    return found == mHeaders.end() ? CString() : found->second;
}

// ---------------------------------------------------------------------------------------------
// CRTSPSessionDelegate

CRTSPSessionDelegate::~CRTSPSessionDelegate() = default;

int CRTSPSessionDelegate::connected(RRTSPSession*, int result) {
    return result;
}

void CRTSPSessionDelegate::willSendRequest(RRTSPSession*, RRTSPRequest*) {}

void CRTSPSessionDelegate::didReceiveResponse(RRTSPSession*, RRTSPResponse*) {}

bool CRTSPSessionDelegate::shouldAuthenticate(RRTSPSession*, RRTSPRequest*, RRTSPResponse*) {
    return true;
}

// ---------------------------------------------------------------------------------------------
// RRTSPSession

RRTSPSession::RRTSPSession(const RURI& uri) : mURI(uri) {}

void RRTSPSession::setReceiveTimeout(int milliseconds) {
    mReceiveTimeout = milliseconds;
    if (mSocket) {
        mSocket->setReceiveTimeout(milliseconds);
    }
}

int RRTSPSession::connect() {
    mSocket = mURI.getSocket();
    int result = -1;
    if (mSocket) {
        mSocket->setReceiveTimeout(mReceiveTimeout);
        result = mSocket->connect();
        if (result == 0) {
            return 0;
        }
    }
    return mDelegate ? mDelegate->connected(this, result) : 0;
}

int RRTSPSession::postRequest(RRTSPRequest& request) {
    if (!mSocket) {
        return -1;
    }
    // Wraps instead of overflowing after 2^31 requests.
    mSequence = static_cast<int>(static_cast<unsigned int>(mSequence) + 1u);
    request.addHeader("CSeq", CString::createWithFormat("%d", mSequence));
    if (mAuthorization.getLength() > 0) {
        request.addHeader("Authorization", mAuthorization);
    }
    if (mDelegate) {
        mDelegate->willSendRequest(this, &request);
    }
    return request.sendRequest(mSocket);
}

RPtr<RRTSPResponse> RRTSPSession::exchange(RRTSPRequest& request) {
    postRequest(request);
    RPtr<RRTSPResponse> response = RRTSPResponse::createWithSocket(mSocket);
    if (mDelegate) {
        mDelegate->didReceiveResponse(this, response.addr());
    }
    return response;
}

RPtr<RRTSPResponse> RRTSPSession::sendRequest(RRTSPRequest& request) {
    if (!mSocket) {
        return nullptr;
    }
    RPtr<RRTSPResponse> response = exchange(request);
    if (response->getStatus() != kUnauthorized) {
        return response;
    }
    if (mDelegate && !mDelegate->shouldAuthenticate(this, &request, response.addr())) {
        return response;
    }
    const CString challenge = response->getHeader("WWW-Authenticate");
    if (challenge.find("Basic", 0) != -1) {
        CString credentials = CString::createWithFormat("%s:%s", mUser.c_str(), mPassword.c_str());
        CString encoded;
        encoded.encodeBase64(credentials, 0);
        mAuthorization = CString::createWithFormat("Basic %s", encoded.c_str());
    } else if (challenge.find("Digest", 0) != -1) {
        doDigestAuthentification(request, *response);
    }
    // The same request object goes again: addHeader keeps its first CSeq, so the retry
    // repeats the number of the first attempt while the counter moves on.
    return exchange(request);
}

void RRTSPSession::doDigestAuthentification(RRTSPRequest& request, RRTSPResponse& response) {
    const CString challenge = response.getHeader("WWW-Authenticate");
    if (challenge.getLength() == 0) {
        return;
    }
    // The reduced form names the user and echoes realm, nonce and URI; servers that check
    // a computed response reject it, which the caller sees as a second 401.
    const std::string realm = challengeParameter(challenge.c_str(), "realm");
    const std::string nonce = challengeParameter(challenge.c_str(), "nonce");
    mAuthorization = CString::createWithFormat(
        "Digest username=\"%s\", realm=\"%s\", nonce=\"%s\", uri=\"%s\"", mUser.c_str(),
        realm.c_str(), nonce.c_str(), request.getURI().getString().c_str());
}

}  // namespace CM
}  // namespace ZR
