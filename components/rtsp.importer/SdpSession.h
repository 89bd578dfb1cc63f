// CSdpSession: what a receiver reads from a session description (RFC 4566) that an RTSP
// server answers a DESCRIBE with: the session's name and control URL, and for each media
// block its kind, its control URL, its frame rate where given, and the payload format of
// its first payload type (the rtpmap and fmtp attributes, or the static assignment of the
// type).
//
// The text is not trusted: lines may end in CR LF or LF alone, lines that do not parse are
// skipped, and attributes of other payload types are ignored. Only a text without a "v=0"
// line fails.
//
// Plain values; any thread.
#ifndef CM_COMPONENTS_RTSPIMPORTER_SDPSESSION_H
#define CM_COMPONENTS_RTSPIMPORTER_SDPSESSION_H

#include <map>
#include <string>
#include <vector>

namespace cmcomponents {

struct CRtpPayloadFormat {
    unsigned int payloadType = 0;
    std::string encoding;  // upper case: "H264", "MPEG4-GENERIC", "L16"; empty when unknown
    unsigned int clockRate = 0;
    unsigned int channels = 0;  // 0 when not given
    // The fmtp parameters, names in lower case.
    std::map<std::string, std::string> parameters;

    // The parameter's value, or fallback when it is absent.
    std::string parameter(const char* name, const char* fallback = "") const;
    // The parameter as a whole number from 0 to max, or fallback when it is absent or not
    // such a number.
    long number(const char* name, long fallback, long max) const;
};

struct CSdpMedia {
    std::string kind;      // "video", "audio", ...
    std::string protocol;  // "RTP/AVP", ...
    std::string control;   // empty when none was given
    double frameRate = 0.0;
    CRtpPayloadFormat format;
};

struct CSdpSession {
    std::string name;
    std::string control;
    std::vector<CSdpMedia> media;

    // Parses text, replacing what the session held; false when it is no session
    // description.
    bool parse(const std::string& text);
};

}  // namespace cmcomponents

#endif
