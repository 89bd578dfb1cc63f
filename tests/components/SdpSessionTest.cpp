#include "rtsp.importer/SdpSession.h"

#include <gtest/gtest.h>

using cmcomponents::CSdpSession;

// A description as servers write them, with what a careless one adds: bare line feeds,
// attributes of payload types other than the one taken, a media line that does not parse
// (its attributes must not land on the block before it), and a static payload type
// without rtpmap.
TEST(SdpSessionTest, ReadsEachMediaBlocksFirstPayloadFormat) {
    const std::string text =
        "v=0\r\n"
        "o=- 1 1 IN IP4 127.0.0.1\r\n"
        "s=Camera 1\r\n"
        "a=control:*\r\n"
        "m=video 0 RTP/AVP 96 98\r\n"
        "a=rtpmap:98 VP8/90000\r\n"
        "a=rtpmap:96 H264/90000\r\n"
        "a=fmtp:98 x=y\r\n"
        "a=fmtp:96 packetization-mode=1; Sprop-Parameter-Sets=Z0LA,aM4=\r\n"
        "a=framerate:25\r\n"
        "a=control:stream=0\r\n"
        "m=audio 0 RTP/AVP\n"
        "a=control:broken\n"
        "m=audio 0 RTP/AVP 10\n"
        "a=control:rtsp://other/stream=2\n";
    CSdpSession session;
    ASSERT_TRUE(session.parse(text));
    EXPECT_EQ(session.name, "Camera 1");
    EXPECT_EQ(session.control, "*");
    ASSERT_EQ(session.media.size(), 2u);

    const auto& video = session.media[0];
    EXPECT_EQ(video.kind, "video");
    EXPECT_EQ(video.protocol, "RTP/AVP");
    EXPECT_EQ(video.control, "stream=0");
    EXPECT_DOUBLE_EQ(video.frameRate, 25.0);
    EXPECT_EQ(video.format.payloadType, 96u);
    EXPECT_EQ(video.format.encoding, "H264");
    EXPECT_EQ(video.format.clockRate, 90000u);
    EXPECT_EQ(video.format.parameter("sprop-parameter-sets"), "Z0LA,aM4=");
    EXPECT_EQ(video.format.number("packetization-mode", 0, 2), 1);
    EXPECT_EQ(video.format.parameter("x", "none"), "none");

    const auto& audio = session.media[1];
    EXPECT_EQ(audio.control, "rtsp://other/stream=2");
    EXPECT_EQ(audio.format.encoding, "L16");
    EXPECT_EQ(audio.format.clockRate, 44100u);
    EXPECT_EQ(audio.format.channels, 2u);

    EXPECT_FALSE(session.parse("RTSP/1.0 200 OK\r\n\r\nm=video 0 RTP/AVP 96\r\n"));
    EXPECT_FALSE(session.parse(""));
}
