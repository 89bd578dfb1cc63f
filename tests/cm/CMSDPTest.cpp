#include <cm/CMSDP.h>

#include <gtest/gtest.h>

#include <string>

using namespace ZR;
using namespace ZR::CM;

namespace {

std::string sdpOf(const CSDPSessionDescription& session) {
    return session.getSDP()->c_str();
}

TEST(SDPSessionTest, OptionalLinesAppearInOrderWhenSet) {
    CSDPSessionDescription session("Evening news", "engine");
    session.mSessionId = "42";
    session.mSessionVersion = "7";
    session.mAddress = "192.0.2.1";
    session.mSessionInformation = "Live";
    session.mURI = "http://example.invalid/news";
    session.mEmailAddress = "desk@example.invalid";
    session.mPhoneNumber = "+1 555 0100";
    session.mPhoneName = "Desk";
    session.mConnection = CSDPConnectionInfo("IN", "IP4", "233.252.0.1", 127, 3);
    session.mBandwidth = "AS:128";  // not written
    session.mStartTime = 10;
    session.mStopTime = -1;
    session.mAttributes.emplace_back(CString("recvonly"));
    session.mAttributes.emplace_back(CString("tool"), CString("cm"));
    session.mPayloadFormats.emplace_back(CString("H264"), 96, CString("packetization-mode=1"));
    EXPECT_EQ(sdpOf(session),
              "v=0\r\n"
              "n=engine 42 7 IN IP4 192.0.2.1 \r\n"
              "s=Evening news\r\n"
              "i=Live\r\n"
              "u=http://example.invalid/news\r\n"
              "e=desk@example.invalid\r\n"
              "p=+1 555 0100 (Desk)\r\n"
              "c=IN IP4 233.252.0.1\r\n"
              "t=10 -1\r\n"
              "a=recvonly\r\n"
              "a=tool:cm");

    session.mEmailName = "News Desk";
    session.mPhoneName = "";
    const std::string text = sdpOf(session);
    EXPECT_NE(text.find("\r\ne=desk@example.invalid (News Desk)\r\n"), std::string::npos);
    EXPECT_NE(text.find("\r\np=+1 555 0100\r\n"), std::string::npos);
}

}  // namespace
