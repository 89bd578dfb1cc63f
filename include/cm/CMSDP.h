// The session level of an SDP text: who offers the session, its name and contact lines, the
// connection, the times and the session attributes. getSDP() writes these lines; the media
// blocks come from RRTPDescription::getSDP() and the caller appends them behind.
//
// The text differs from the usual form in two deliberate ways that must be kept: the origin
// line is keyed "n=" rather than "o=", and it ends in a blank after the address.
//
// All four classes are plain values with public fields, filled by one thread.
#ifndef CM_CMSDP_H
#define CM_CMSDP_H

#include <zr/CBuffer.h>
#include <zr/RPtr.h>

#include <vector>

namespace ZR {
namespace CM {

// One "a=" line: "a=value" for a value-only attribute, else "a=name:value".
class CSDPAttribute {
public:
    CSDPAttribute() = default;
    explicit CSDPAttribute(const CString& value);
    CSDPAttribute(const CString& name, CString value);

    // The line without its line end.
    CString getString() const;

    CString mName;
    CString mValue;
    bool mValueOnly = true;  // the attribute has no name
};

// Connection data: network type, address type and address, with TTL and address count for
// multicast (the session's "c=" line writes neither).
class CSDPConnectionInfo {
public:
    CSDPConnectionInfo() = default;
    CSDPConnectionInfo(CString networkType, const CString& addressType, CString address, int ttl,
                       int count);

    CString mNetworkType{"IN"};
    CString mAddressType{"IP4"};
    CString mAddress{"0.0.0.0"};
    int mTTL = -1;
    int mCount = -1;
};

// A payload type with its encoding name and format parameters.
class CSDPPayloadFormat {
public:
    CSDPPayloadFormat() = default;
    CSDPPayloadFormat(const CString& encoding, int payloadType, const CString& parameters);

    CString mEncoding;
    int mPayloadType = -1;
    CString mParameters;
};

class CSDPSessionDescription {
public:
    CSDPSessionDescription() = default;
    CSDPSessionDescription(const CString& sessionName, const CString& userName);

    // The session-level lines joined by CR LF: starts with "v=0", ends without a line end.
    RPtr<RString> getSDP() const;

    int mVersion = 0;  // the version line is always "v=0"
    CString mUserName{"-"};
    CString mSessionId{"0"};
    CString mSessionVersion{"0"};
    CString mNetworkType{"IN"};
    CString mAddressType{"IP4"};
    CString mAddress{"0.0.0.0"};
    CString mSessionName;
    CString mSessionInformation;  // "i=", written when not empty
    CString mURI;                 // "u=", written when not empty
    CString mEmailAddress;        // "e=", written when not empty
    CString mEmailName;           // in parentheses after the address, when not empty
    CString mPhoneNumber;         // "p=", written when not empty
    CString mPhoneName;           // in parentheses after the number, when not empty
    CSDPConnectionInfo mConnection;
    CString mBandwidth;  // held for the host; not written
    int mStartTime = 0;
    int mStopTime = 0;
    std::vector<CSDPAttribute> mAttributes;
    // Payload formats the host keeps with the session; the media blocks of the RTP
    // descriptions describe them in the text, so getSDP() does not write them.
    std::vector<CSDPPayloadFormat> mPayloadFormats;
};

}  // namespace CM
}  // namespace ZR

#endif
