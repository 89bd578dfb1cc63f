#include "rtp.exporter/RTPExporter.h"

#include "aac.packetizer/AacPacketizer.h"
#include "av.importer/AvImporter.h"
#include "h264.packetizer/H264Packetizer.h"
#include "l16.packetizer/L16Packetizer.h"
#include "opus.packetizer/OpusPacketizer.h"

#include "support/CodedPipelines.h"
#include "support/Loopback.h"
#include "support/MediaTools.h"
#include "support/RTPPackets.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <map>
#include <sstream>
#include <string>
#include <vector>

using ZR::RPtr;
using namespace cmcomponents;

namespace {

// The tab-separated fields tshark gives for each packet of the capture.
std::vector<std::vector<std::string>> dissect(const std::string& capture,
                                              const std::string& options) {
    const std::string out = cmtest::runCommand("tshark -r " + capture + " " + options +
                                               " -T fields -E occurrence=f 2>/dev/null")
                                .output;
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> fields;
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, '\t');) {
            fields.push_back(cell);
        }
        rows.push_back(fields);
    }
    return rows;
}

// H.264, AAC, Opus and 16-bit PCM from one file go through their packetizers to the
// exporter, which sends them in real time to four port pairs; tshark dissects every packet
// without finding any malformed, and the sender reports of the streams tie their clocks to
// one wall clock.
TEST(RTPExporterTest, SendsStreamsThatTsharkDissects) {
    ASSERT_TRUE(cmtest::haveTool("tshark"));
    cmtest::TempDir dir;
    const std::string clip = dir.file("clip.mkv");
    ASSERT_TRUE(cmtest::makeWithFfmpeg(
        "-f lavfi -i testsrc=s=320x240:r=25:d=1 -f lavfi -i sine=d=1 -f lavfi -i sine=f=880:d=1 "
        "-f lavfi -i sine=f=220:d=1 -map 0 -map 1 -map 2 -map 3 -c:v libx264 -preset ultrafast "
        "-g 10 -c:a:0 aac -c:a:1 libopus -c:a:2 pcm_s16le",
        clip));
    int port = 0;
    const std::vector<int> sockets = cmtest::loopbackDatagramPorts(8, &port);

    RPtr<RAvImporter> importer(new RAvImporter);
    RPtr<RH264Packetizer> video(new RH264Packetizer);
    RPtr<RAacPacketizer> aac(new RAacPacketizer);
    RPtr<ROpusPacketizer> opus(new ROpusPacketizer);
    RPtr<RL16Packetizer> l16(new RL16Packetizer);
    RPtr<RRTPExporter> exporter(new RRTPExporter);
    cmtest::Graph graph{importer.addr(),
                        {{video.addr()}, {aac.addr()}, {opus.addr()}, {l16.addr()}},
                        exporter.addr()};
    int payloadType = 96;
    for (RRTPPacketizer* packetizer :
         {static_cast<RRTPPacketizer*>(video.addr()), static_cast<RRTPPacketizer*>(aac.addr()),
          static_cast<RRTPPacketizer*>(opus.addr()), static_cast<RRTPPacketizer*>(l16.addr())}) {
        packetizer->configure(*cmtest::settingsOf<ZR::CM::RPacketizerConfiguration>(
            "payload-type=" + std::to_string(payloadType++)));
    }
    graph.exporterConfiguration = *cmtest::settingsOf<ZR::CM::RExporterConfiguration>(
        "host=127.0.0.1,port=" + std::to_string(port) + ",realtime=1");
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(cmtest::runGraph(graph, clip, dir.file("unused")), 0);
    // The last frames are due about a second after the first.
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(900));

    std::vector<cmtest::Datagram> datagrams;
    for (size_t i = 0; i < sockets.size(); ++i) {
        for (const std::string& got : cmtest::receiveWaiting(sockets[i])) {
            datagrams.push_back(
                {port + static_cast<int>(i), cmtest::Bytes(got.begin(), got.end())});
        }
        close(sockets[i]);
    }
    const std::string capture = dir.file("rtp.pcap");
    cmtest::writePcap(capture, datagrams, 40000);
    std::string options;
    for (int i = 0; i < 8; ++i) {
        options += " -d udp.port==" + std::to_string(port + i) + (i % 2 ? ",rtcp" : ",rtp");
    }
    options +=
        " -d rtp.pt==96,h264 -d rtp.pt==98,opus -d rtp.pt==99,data -e udp.dstport -e "
        "frame.protocols"
        " -e _ws.malformed -e rtp.p_type -e rtcp.timestamp.ntp.msw"
        " -e rtcp.timestamp.ntp.lsw -e rtcp.timestamp.rtp -e rtcp.sdes.text";
    // tshark has no AAC-hbr and no dynamic L16 (it would take payload type 99 for
    // redundant audio): both are plain RTP payload.
    const char* const payloads[] = {":h264", ":rtp", ":opus", ":rtp"};
    const double rates[] = {90000, 44100, 48000, 44100};
    std::map<int, int> packets;     // per port
    std::map<int, double> origins;  // per stream: its first report's wall clock less RTP time
    for (const std::vector<std::string>& row : dissect(capture, options)) {
        ASSERT_GE(row.size(), 4u);
        const int stream = (std::stoi(row[0]) - port) / 2;
        const bool rtcp = (std::stoi(row[0]) - port) % 2;
        ++packets[std::stoi(row[0])];
        EXPECT_EQ(row[2], "") << "stream " << stream << " malformed: " << row[1];
        if (!rtcp) {
            EXPECT_NE(row[1].find(payloads[stream]), std::string::npos) << row[1];
            EXPECT_EQ(row[3], std::to_string(96 + stream));
        } else if (packets[std::stoi(row[0])] == 1) {
            ASSERT_EQ(row.size(), 8u) << row[1];
            EXPECT_FALSE(row[7].empty()) << "no CNAME";
            origins[stream] = std::stod(row[4]) + std::stod(row[5]) / 4294967296.0 -
                              std::stod(row[6]) / rates[stream];
        }
    }
    for (int i = 0; i < 8; ++i) {
        EXPECT_GT(packets[port + i], 0) << "nothing on port " << port + i;
    }
    ASSERT_EQ(origins.size(), 4u);
    for (int stream = 1; stream < 4; ++stream) {
        EXPECT_NEAR(origins[stream], origins[0], 1e-4) << "stream " << stream;
    }
}

// Inputs whose frames come without an RTP description (none at all, or one of plain
// audio) fail the run; each is read to its end all the same, so that nothing upstream
// waits: the frames go in one input after the other through tiny queues.
TEST(RTPExporterTest, RefusesAnInputThatIsNotRtp) {
    cmtest::TempDir dir;
    int port = 0;
    const std::vector<int> sockets = cmtest::loopbackDatagramPorts(4, &port);
    cmtest::Track plain;
    plain.description = new ZR::CM::RAudioDescription;
    plain.frames = cmtest::timedFrames(ZR::fourcc("audi"), ZR::fourcc("lpcm"), {{1, 2}}, 0, 0.1);
    cmtest::Track undescribed;
    undescribed.frames = cmtest::timedFrames(ZR::fourcc("audi"), ZR::fourcc("lpcm"),
                                             std::vector<cmtest::Bytes>(20, {1, 2}), 0, 0.1);
    RPtr<RRTPExporter> exporter(new RRTPExporter);
    exporter->configure(*cmtest::settingsOf<ZR::CM::RExporterConfiguration>(
        "port=" + std::to_string(port) + ",realtime=0"));
    const ZR::CM::CComponentStatus status =
        cmtest::exportTracks(*exporter, dir.file("unused"), {undescribed, plain});
    EXPECT_EQ(status.mExtra, unsigned(ZR::CM::kResultNoValidTracks)) << status.mInfo.c_str();
    for (const int fd : sockets) {
        close(fd);
    }
}

}  // namespace
