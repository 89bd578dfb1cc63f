#include <cm/CMSDP.h>

#include <zrbase/string_with_format.h>

#include <string>
#include <utility>

namespace ZR {
namespace CM {

CSDPAttribute::CSDPAttribute(const CString& value) : mValue(value) {}

CSDPAttribute::CSDPAttribute(const CString& name, CString value)
    : mName(name), mValue(std::move(value)), mValueOnly(false) {}

CString CSDPAttribute::getString() const {
    if (mValueOnly) {
        return CString::createWithFormat("a=%s", mValue.c_str());
    }
    return CString::createWithFormat("a=%s:%s", mName.c_str(), mValue.c_str());
}

CSDPConnectionInfo::CSDPConnectionInfo(CString networkType, const CString& addressType,
                                       CString address, int ttl, int count)
    : mNetworkType(std::move(networkType)),
      mAddressType(addressType),
      mAddress(std::move(address)),
      mTTL(ttl),
      mCount(count) {}

CSDPPayloadFormat::CSDPPayloadFormat(const CString& encoding, int payloadType,
                                     const CString& parameters)
    : mEncoding(encoding), mPayloadType(payloadType), mParameters(parameters) {}

CSDPSessionDescription::CSDPSessionDescription(const CString& sessionName, const CString& userName)
    : mUserName(userName), mSessionName(sessionName) {}

RPtr<RString> CSDPSessionDescription::getSDP() const {
    std::string text = "v=0";
    // The origin line has room for a seventh field that nothing fills: it ends in a blank.
    text += zrbase::string_with_format(
        "\r\nn=%s %s %s %s %s %s %s", mUserName.c_str(), mSessionId.c_str(),
        mSessionVersion.c_str(), mNetworkType.c_str(), mAddressType.c_str(), mAddress.c_str(), "");
    text += zrbase::string_with_format("\r\ns=%s", mSessionName.c_str());
    if (mSessionInformation.getLength() > 0) {
        text += zrbase::string_with_format("\r\ni=%s", mSessionInformation.c_str());
    }
    if (mURI.getLength() > 0) {
        text += zrbase::string_with_format("\r\nu=%s", mURI.c_str());
    }
    const auto contact = [&text](const char* key, const CString& value, const CString& name) {
        if (value.getLength() == 0) {
            return;
        }
        text += zrbase::string_with_format("\r\n%s=%s", key, value.c_str());
        if (name.getLength() > 0) {
            text += zrbase::string_with_format(" (%s)", name.c_str());
        }
    };
    contact("e", mEmailAddress, mEmailName);
    contact("p", mPhoneNumber, mPhoneName);
    text +=
        zrbase::string_with_format("\r\nc=%s %s %s", mConnection.mNetworkType.c_str(),
                                   mConnection.mAddressType.c_str(), mConnection.mAddress.c_str());
    text += zrbase::string_with_format("\r\nt=%d %d", mStartTime, mStopTime);
    for (const CSDPAttribute& attribute : mAttributes) {
        text += "\r\n";
        text += attribute.getString().c_str();
    }
    return RPtr<RString>(new RString(text.c_str()));
}

}  // namespace CM
}  // namespace ZR
