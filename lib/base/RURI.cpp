#include <zr/RURI.h>

#include <zrbase/path.h>

#include <cstring>
#include <string>

namespace ZR {

namespace {

struct SchemeInfo {
    const char* name;
    int kind;
    int port;  // the usual port, 0 when the scheme has none
};

constexpr SchemeInfo kSchemes[] = {
    {"file", RURI::kFile, 0},   {"http", RURI::kHTTP, 80},   {"https", RURI::kHTTPS, 443},
    {"rtsp", RURI::kRTSP, 554}, {"rtmp", RURI::kRTMP, 1935}, {"firewire", RURI::kFirewire, 0},
};

const SchemeInfo* findScheme(const std::string& lowerCaseName) {
    for (const auto& scheme : kSchemes) {
        if (lowerCaseName == scheme.name) {
            return &scheme;
        }
    }
    return nullptr;
}

// 0 to 65535 written as one to five decimal digits, else -1.
int parsePort(const char* begin, const char* end) {
    if (begin == end || end - begin > 5) {
        return -1;
    }
    int port = 0;
    for (const char* p = begin; p != end; ++p) {
        if (*p < '0' || *p > '9') {
            return -1;
        }
        port = port * 10 + (*p - '0');
    }
    return port <= 65535 ? port : -1;
}

CString slice(const char* begin, const char* end) {
    return CString(std::string(begin, end).c_str());
}

}  // namespace

RURI::RURI(const char* text) : mText(text ? text : "") {
    const std::string whole(mText.c_str());
    const std::string scheme = zrbase::url_scheme(whole, false);
    if (scheme.empty()) {
        mPath = mText;
        return;
    }
    mScheme = scheme.c_str();
    const SchemeInfo* info = findScheme(zrbase::url_scheme(whole, true));
    mKind = info ? info->kind : kOther;

    const char* rest = whole.c_str() + scheme.size() + 1;  // past the ':'
    const char* const end = whole.c_str() + whole.size();
    int port = -1;
    if (end - rest >= 2 && rest[0] == '/' && rest[1] == '/') {
        const char* authority = rest + 2;
        rest = authority;
        while (rest != end && *rest != '/' && *rest != '?' && *rest != '#') {
            ++rest;
        }
        port = parseAuthority(authority, rest);
    }
    mPath = slice(rest, end);
    mPort = port != -1 ? port : info ? info->port : 0;
}

int RURI::parseAuthority(const char* begin, const char* end) {
    const char* host = begin;
    for (const char* p = end; p != begin; --p) {
        if (p[-1] == '@') {
            host = p;
            break;
        }
    }
    if (host != begin) {
        const char* userEnd = host - 1;
        const char* colon = static_cast<const char*>(std::memchr(begin, ':', userEnd - begin));
        mUser = slice(begin, colon ? colon : userEnd);
        if (colon) {
            mPassword = slice(colon + 1, userEnd);
        }
    }

    const char* port = nullptr;
    if (host != end && *host == '[') {
        const char* close = static_cast<const char*>(std::memchr(host, ']', end - host));
        if (!close) {
            mHost = slice(host, end);
            return -1;
        }
        mHost = slice(host + 1, close);
        if (close + 1 != end && close[1] == ':') {
            port = close + 2;
        }
    } else {
        const char* colon = static_cast<const char*>(std::memchr(host, ':', end - host));
        mHost = slice(host, colon ? colon : end);
        port = colon ? colon + 1 : nullptr;
    }
    return port ? parsePort(port, end) : -1;
}

RPtr<RSocket> RURI::getSocket() const {
    if (mHost.getLength() == 0 || mPort == 0) {
        return RPtr<RSocket>();
    }
    return RPtr<RSocket>(new RSocket(mHost.c_str(), mPort, RSocket::kStream, RSocket::kIPv4));
}

}  // namespace ZR
