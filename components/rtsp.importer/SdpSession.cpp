#include "rtsp.importer/SdpSession.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace cmcomponents {

namespace {

std::string trimmed(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) {
        return "";
    }
    return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A whole decimal number from 0 to max, or -1.
long wholeNumber(const std::string& text, long max) {
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0]))) {
        return -1;
    }
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    return *end == '\0' && errno == 0 && value <= max ? value : -1;
}

// The static payload types a receiver of this library can take (RFC 3551).
void staticFormat(CRtpPayloadFormat& format) {
    if (format.payloadType == 10 || format.payloadType == 11) {
        format.encoding = "L16";
        format.clockRate = 44100;
        format.channels = format.payloadType == 10 ? 2 : 1;
    }
}

// "96 H264/90000" or "97 MPEG4-GENERIC/48000/2".
void readRtpmap(const std::string& value, CRtpPayloadFormat& format) {
    std::istringstream fields(value);
    std::string type;
    std::string encoding;
    fields >> type >> encoding;
    if (wholeNumber(type, 127) != static_cast<long>(format.payloadType)) {
        return;
    }
    std::istringstream parts(encoding);
    std::string name, rate, channels;
    std::getline(parts, name, '/');
    std::getline(parts, rate, '/');
    std::getline(parts, channels, '/');
    format.encoding = upperCase(name);
    format.clockRate = static_cast<unsigned int>(std::max(wholeNumber(rate, 10000000), 0L));
    format.channels = static_cast<unsigned int>(std::max(wholeNumber(channels, 255), 0L));
}

// "96 packetization-mode=1;profile-level-id=42e01f;sprop-parameter-sets=Z0Lg,aM4="
void readFmtp(const std::string& value, CRtpPayloadFormat& format) {
    const auto blank = value.find(' ');
    if (blank == std::string::npos ||
        wholeNumber(value.substr(0, blank), 127) != static_cast<long>(format.payloadType)) {
        return;
    }
    std::istringstream items(value.substr(blank + 1));
    std::string item;
    while (std::getline(items, item, ';')) {
        const auto equals = item.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        const std::string name = lowerCase(trimmed(item.substr(0, equals)));
        if (!name.empty()) {
            format.parameters[name] = trimmed(item.substr(equals + 1));
        }
    }
}

// "video 0 RTP/AVP 96": false when the line is not a media line.
bool readMediaLine(const std::string& value, CSdpMedia& media) {
    std::istringstream fields(value);
    std::string port, type;
    fields >> media.kind >> port >> media.protocol >> type;
    const long payloadType = wholeNumber(type, 127);
    if (payloadType < 0) {
        return false;
    }
    media.format.payloadType = static_cast<unsigned int>(payloadType);
    staticFormat(media.format);
    return true;
}

void readAttribute(const std::string& value, std::string& control, CSdpMedia* media) {
    const auto colon = value.find(':');
    const std::string name = value.substr(0, colon);
    const std::string content = colon == std::string::npos ? "" : trimmed(value.substr(colon + 1));
    if (name == "control") {
        (media ? media->control : control) = content;
    } else if (!media) {
        return;
    } else if (name == "rtpmap") {
        readRtpmap(content, media->format);
    } else if (name == "fmtp") {
        readFmtp(content, media->format);
    } else if (name == "framerate") {
        const double rate = std::strtod(content.c_str(), nullptr);
        media->frameRate = rate > 0.0 && rate < 1000.0 ? rate : 0.0;
    }
}

}  // namespace

std::string CRtpPayloadFormat::parameter(const char* name, const char* fallback) const {
    const auto found = parameters.find(name);
    return found == parameters.end() ? fallback : found->second;
}

long CRtpPayloadFormat::number(const char* name, long fallback, long max) const {
    const long value = wholeNumber(parameter(name), max);
    return value < 0 ? fallback : value;
}

bool CSdpSession::parse(const std::string& text) {
    *this = CSdpSession();
    bool versioned = false;
    bool skipping = false;  // inside a media block whose m= line did not parse
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.size() < 2 || line[1] != '=') {
            continue;
        }
        const std::string value = line.substr(2);
        switch (line[0]) {
            case 'v':
                versioned = versioned || trimmed(value) == "0";
                break;
            case 's':
                if (media.empty()) {
                    name = value;
                }
                break;
            case 'm': {
                CSdpMedia block;
                skipping = !readMediaLine(value, block);
                if (!skipping) {
                    media.push_back(block);
                }
                break;
            }
            case 'a':
                if (!skipping) {
                    readAttribute(value, control, media.empty() ? nullptr : &media.back());
                }
                break;
            default:
                break;
        }
    }
    return versioned;
}

}  // namespace cmcomponents
