#include "rtsp.importer/RtspImporter.h"

#include <gtest/gtest.h>

#include "av.exporter/AvExporter.h"

#include <cm/CMComponentStatus.h>

#include "support/CodedPipelines.h"
#include "support/MediaTools.h"
#include "support/RtpStreams.h"
#include "support/RtspServers.h"
#include "support/TestSupport.h"

#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::RRtspImporter;
using cmtest::Bytes;
using cmtest::RtspAnswer;

namespace {

// ---------------------------------------------------------------------------------------------
// GStreamer's RTSP server

struct Recording {
    const char* transport;
    const char* auth;
};

class RtspImporterRecordingTest : public testing::TestWithParam<Recording> {};

// A live 320x240 H.264 picture and an AAC tone from GStreamer's RTSP server, recorded for
// 5 s into MP4 over each transport and authorization: the importer describes both tracks
// before playing, and ffprobe finds them in the file, 5 s long within 0.2 s, every frame
// decoding without an error, with the video starting at its first key frame.
TEST_P(RtspImporterRecordingTest, RecordsGStreamerServerIntoMp4) {
    const Recording& recording = GetParam();
    cmtest::GStreamerRtspServer server("alice", "s3cret", recording.auth, "av");
    ASSERT_GT(server.port(), 0) << "GStreamer's RTSP server did not start";
    const std::string url = server.url(std::string(recording.auth) == "none" ? "" : "alice:s3cret");

    RPtr<RRtspImporter> describer(new RRtspImporter);
    std::vector<RQueue*> none;
    describer->init(nullptr, none);
    ASSERT_EQ(describer->preconfigure(*cmtest::settingsOf<RImporterConfiguration>("url=" + url)),
              0);
    ASSERT_EQ(describer->openSource(), 0) << std::string(describer->getStatus().mInfo.c_str());
    const RPtr<RMovieInfo> movie = describer->getMovieInfo();
    ASSERT_EQ(movie->mTracks.size(), 2u);
    const auto* video = dynamic_cast<const RVideoTrackInfo*>(movie->mTracks[0]);
    const auto* audio = dynamic_cast<const RAudioTrackInfo*>(movie->mTracks[1]);
    ASSERT_TRUE(video && audio);
    EXPECT_EQ(video->mTrackValue, ZR::fourcc("avc1"));
    EXPECT_EQ(video->mKindValue1, 320u);
    EXPECT_EQ(video->mKindValue2, 240u);
    EXPECT_EQ(audio->mTrackValue, ZR::fourcc("mp4a"));
    EXPECT_EQ(audio->mKindValue1, 2u);
    EXPECT_DOUBLE_EQ(audio->mTrackReal, 48000.0);
    describer->reset();

    cmtest::TempDir dir;
    const std::string output = dir.file("recording.mp4");
    RPtr<RRtspImporter> importer(new RRtspImporter);
    RPtr<cmcomponents::RAvExporter> exporter(new cmcomponents::RAvExporter);
    cmtest::Graph graph{importer.addr(), {{}, {}}, exporter.addr()};
    graph.importerConfiguration = *cmtest::settingsOf<RImporterConfiguration>(
        "url=" + url + ",transport=" + recording.transport + ",seconds=5");
    const int opened = cmtest::runGraph(graph, RPtr<RStream>(), output);
    const CComponentStatus status = importer->getStatus();
    ASSERT_EQ(opened, 0) << status.mInfo.c_str();
    EXPECT_EQ(status.mExtra, 0u) << status.mInfo.c_str();
    EXPECT_EQ(exporter->getStatus().mExtra, 0u) << exporter->getStatus().mInfo.c_str();

    const auto streams = cmtest::probeStreams(output, true);
    ASSERT_EQ(streams.size(), 2u) << status.mInfo.c_str();
    EXPECT_EQ(streams[0].at("codec_name"), "h264");
    EXPECT_EQ(streams[0].at("width"), "320");
    EXPECT_EQ(streams[0].at("height"), "240");
    EXPECT_EQ(streams[1].at("codec_name"), "aac");
    EXPECT_EQ(streams[1].at("sample_rate"), "48000");
    EXPECT_EQ(streams[1].at("channels"), "2");
    EXPECT_LT(cmtest::probedNumber(streams[0], "start_time"), 1.1);
    for (const auto& stream : streams) {
        EXPECT_GT(cmtest::probedNumber(stream, "nb_read_frames"), 0.0);
        EXPECT_EQ(stream.at("nb_read_frames"), stream.at("nb_read_packets"));
    }
    EXPECT_NEAR(cmtest::probeDuration(output), 5.0, 0.2);
    const cmtest::ToolRun decode =
        cmtest::runCommand("ffmpeg -v error -i " + cmtest::shellQuote(output) + " -f null - 2>&1");
    EXPECT_EQ(decode.status, 0);
    EXPECT_EQ(decode.output, "");
}

INSTANTIATE_TEST_SUITE_P(Transports, RtspImporterRecordingTest,
                         testing::Values(Recording{"udp", "none"}, Recording{"udp", "digest"},
                                         Recording{"tcp", "none"}, Recording{"tcp", "digest"},
                                         Recording{"auto", "basic"}),
                         [](const testing::TestParamInfo<Recording>& info) {
                             return std::string(info.param.transport) + "_" + info.param.auth;
                         });

// ---------------------------------------------------------------------------------------------
// Servers that misbehave

const std::string kDescription =
    "v=0\r\ns=scripted\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n"
    "a=control:stream=0\r\n";

const Bytes kIdr{0x65, 0x88, 0x84, 0x00, 0x33};
const Bytes kSlice{0x41, 0x9A, 0x02};

std::string packet(std::uint16_t sequence, std::uint32_t timestamp, bool marker,
                   const Bytes& payload, int channel = 0) {
    return cmtest::interleaved(channel,
                               cmtest::rtpPacket(sequence, timestamp, marker, 96, payload));
}

// Frames 0 to count - 1 as single IDR slices, 40 ms apart.
std::string wholeFrames(int count) {
    std::string media;
    for (int i = 0; i < count; ++i) {
        media +=
            packet(static_cast<std::uint16_t>(i), static_cast<std::uint32_t>(3600 * i), true, kIdr);
    }
    return media;
}

// A stream that goes wrong in every way a packet can, between whole frames: an RTP header
// claiming more contributing sources than it has, an empty frame, a frame on a channel no
// track uses, a fragmented frame whose pieces come out of order and one twice, and a
// fragmented frame whose first piece is lost.
std::string damagedStream() {
    Bytes nal(41, 0x11);
    nal[0] = 0x65;
    const std::vector<Bytes> pieces = cmtest::fuA(nal, 15);  // three
    Bytes forged = cmtest::rtpPacket(1, 3600, true, 96, kIdr);
    forged[0] = 0x8F;
    return packet(0, 0, true, kIdr) + cmtest::interleaved(0, forged) + cmtest::interleaved(0, {}) +
           packet(1, 3600, false, pieces[0], 9) + packet(1, 3600, false, pieces[0]) +
           packet(3, 3600, true, pieces[2]) + packet(2, 3600, false, pieces[1]) +
           packet(2, 3600, false, pieces[1]) + packet(5, 7200, false, pieces[1]) +
           packet(6, 7200, true, pieces[2]) + packet(7, 10800, true, kSlice);
}

using Handler = std::function<RtspAnswer(const std::string& request)>;

// A server that plays by the rules unless a handler for a method says otherwise: PLAY
// answers alone and the connection stays open.
cmtest::ScriptedRtspServer::Reply scripted(std::map<std::string, Handler> handlers) {
    return [handlers](const std::string& method, const std::string& request) -> RtspAnswer {
        const auto handler = handlers.find(method);
        if (handler != handlers.end()) {
            return handler->second(request);
        }
        if (method == "OPTIONS") {
            return {cmtest::rtspReply(
                request, "200 OK", "Public: DESCRIBE, SETUP, PLAY, TEARDOWN, GET_PARAMETER\r\n")};
        }
        if (method == "DESCRIBE") {
            return {cmtest::rtspReply(request, "200 OK", "Content-Type: application/sdp\r\n",
                                      kDescription)};
        }
        if (method == "SETUP") {
            const bool udp = request.find("client_port") != std::string::npos;
            return {cmtest::rtspReply(
                request, "200 OK",
                std::string("Session: 4711;timeout=60\r\nTransport: ") +
                    (udp ? "RTP/AVP;unicast;client_port=5000-5001;server_port=6000-6001\r\n"
                         : "RTP/AVP/TCP;unicast;interleaved=0-1\r\n"))};
        }
        return {cmtest::rtspReply(request, "200 OK", "Session: 4711\r\n")};
    };
}

Handler answer(const std::string& bytes, bool close = false) {
    return [bytes, close](const std::string&) { return RtspAnswer{bytes, close}; };
}

Handler describeWith(const std::string& body) {
    return [body](const std::string& request) {
        return RtspAnswer{cmtest::rtspReply(request, "200 OK", "", body)};
    };
}

Handler playThen(const std::string& media, bool close) {
    return [media, close](const std::string& request) {
        return RtspAnswer{cmtest::rtspReply(request, "200 OK", "Session: 4711\r\n") + media, close};
    };
}

// A server, hostile or lost, never crashes or hangs the importer: it fails to open with the
// result code that names what went wrong, or its run ends (within its time-out) with the
// whole frames that came, its losses and damage counted in the status.
TEST(RtspImporterTest, MisbehavingServersGiveClearResults) {
    struct Row {
        const char* name;
        std::map<std::string, Handler> handlers;
        int opened = 0;
        unsigned int runResult = 0;
        std::vector<Bytes> frames = {};
        const char* note = "";  // in the status of a run that went well
        const char* transport = "tcp";
        const char* methods = "";  // the requests, when they matter
    };
    Bytes fragmented{0, 0, 0, 1, 0x65};
    fragmented.resize(45, 0x11);
    const Bytes idrUnit{0, 0, 0, 1, 0x65, 0x88, 0x84, 0x00, 0x33};
    const std::vector<Bytes> repaired{idrUnit, fragmented, {0, 0, 0, 1, 0x41, 0x9A, 0x02}};
    const auto on = [](const std::string& method, Handler handler) {
        return std::map<std::string, Handler>{{method, std::move(handler)}};
    };
    std::map<std::string, Handler> udpRefused = on("PLAY", playThen(wholeFrames(1), true));
    udpRefused["SETUP"] = [](const std::string& request) {
        if (request.find("client_port") != std::string::npos) {
            return RtspAnswer{cmtest::rtspReply(request, "461 Unsupported Transport")};
        }
        return scripted({})("SETUP", request);
    };
    Handler udpBringsNothing = [plays = std::make_shared<int>(0)](const std::string& request) {
        const bool second = ++*plays == 2;  // the first went over UDP
        return RtspAnswer{cmtest::rtspReply(request, "200 OK", "Session: 4711\r\n") +
                              (second ? wholeFrames(1) : ""),
                          second};
    };
    const std::string cutInAFrame = wholeFrames(3) + packet(3, 10800, false, kIdr).substr(0, 9);
    const std::vector<Row> rows{
        {"garbage instead of replies", on("OPTIONS", answer("\x16\x03\x01 binary garbage\r\n\r\n")),
         kResultFileReadFailed},
        {"a description of two gigabytes",
         on("DESCRIBE", answer("RTSP/1.0 200 OK\r\nContent-Length: 2000000000\r\n\r\nv=0\r\n")),
         kResultInputMetaDataParseFailed},
        {"a description cut short",
         on("DESCRIBE", answer("RTSP/1.0 200 OK\r\nContent-Length: 400\r\n\r\nv=0\r\n", true)),
         kResultFileReadFailed},
        {"a body that is no description", on("DESCRIBE", describeWith("hello")),
         kResultInputMetaDataParseFailed},
        {"nothing the importer can take",
         on("DESCRIBE", describeWith("v=0\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 VP8/90000\r\n")),
         kResultNoValidTracks},
        {"not found", on("DESCRIBE", answer("RTSP/1.0 404 Not Found\r\n\r\n")),
         kResultFileOpenFailed},
        {"silence after PLAY", {}, 0, kResultFileReadFailed},
        {"closes in the middle of a frame", on("PLAY", playThen(cutInAFrame, true)), 0, 0,
         std::vector<Bytes>(3, idrUnit), "3 frames from 3 packets, 0 lost"},
        {"forged, reordered, duplicated and lost packets",
         on("PLAY", playThen(damagedStream(), true)), 0, 0, repaired,
         "3 frames from 7 packets, 1 lost, 1 duplicated, 4 reordered, 2 malformed, 1 frames "
         "dropped"},
        {"binary noise instead of media", on("PLAY", playThen("\x01\x02\x03", false)), 0,
         kResultFileReadFailed},
        {"UDP refused", udpRefused, 0, 0, std::vector<Bytes>(1, idrUnit), "1 frames", "auto",
         "OPTIONS DESCRIBE SETUP SETUP PLAY"},
        {"UDP brings nothing", on("PLAY", udpBringsNothing), 0, 0, std::vector<Bytes>(1, idrUnit),
         "1 frames", "auto", "OPTIONS DESCRIBE SETUP PLAY TEARDOWN SETUP PLAY"},
    };
    for (const Row& row : rows) {
        cmtest::ScriptedRtspServer server(scripted(row.handlers));
        RPtr<RRtspImporter> importer(new RRtspImporter);
        std::vector<cmtest::Track> tracks;
        const int opened = cmtest::importTracks(
            *importer, nullptr, 1, tracks,
            *cmtest::settingsOf<RImporterConfiguration>(
                "url=" + server.url() + ",transport=" + row.transport + ",timeout=2"));
        const CComponentStatus status = importer->getStatus();
        const std::string info = status.mInfo.c_str();
        EXPECT_EQ(opened, row.opened) << row.name << ": " << info;
        if (opened != 0) {
            continue;
        }
        EXPECT_EQ(status.mExtra, row.runResult) << row.name << ": " << info;
        std::vector<Bytes> frames;
        for (const RPtr<RFrame>& frame : tracks[0].frames) {
            frames.emplace_back(frame->getData(), frame->getData() + frame->getSize());
        }
        EXPECT_EQ(frames, row.frames) << row.name;
        EXPECT_NE(info.find(row.note), std::string::npos) << row.name << ": " << info;
        std::string methods;
        for (const std::string& method : server.methods()) {
            methods += (methods.empty() ? "" : " ") + method;
        }
        if (*row.methods) {
            EXPECT_EQ(methods, row.methods) << row.name;
        }
    }
}

}  // namespace
