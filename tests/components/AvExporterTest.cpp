#include "av.exporter/AvExporter.h"

#include <gtest/gtest.h>

#include "av.importer/AvImporter.h"

#include <cm/CMComponentStatus.h>

#include "support/CodedPipelines.h"
#include "support/Faults.h"
#include "support/MediaPipeline.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <fcntl.h>

#include <cmath>
#include <string>
#include <vector>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::RAvExporter;
using cmcomponents::RAvImporter;

namespace {

// An MP4 of H.264 and AAC, and a Matroska file of VP9 and Opus, a second long.
std::string makeSource(const cmtest::TempDir& dir, const std::string& name) {
    const std::string path = dir.file(name);
    const std::string sources = "-f lavfi -i testsrc=s=64x48:r=25:d=1 -f lavfi -i sine=f=440:d=1 ";
    const bool mp4 = name.find(".mp4") != std::string::npos;
    EXPECT_TRUE(cmtest::makeWithFfmpeg(
        sources + (mp4 ? "-c:v libx264 -preset ultrafast -c:a aac"
                       : "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -c:a libopus"),
        path));
    return path;
}

std::vector<cmtest::Track> importAll(const std::string& path) {
    RPtr<RAvImporter> importer(new RAvImporter);
    std::vector<cmtest::Track> tracks;
    EXPECT_EQ(cmtest::importTracks(*importer, cmtest::fileStream(path, O_RDONLY), 2, tracks),
              kResultOK);
    return tracks;
}

}  // namespace

// Both tracks of a file, copied as they are into each container the exporter writes:
// ffprobe finds the same codecs, every frame and the same durations (within a frame).
TEST(AvExporterTest, CopiesTracksIntoEveryContainer) {
    ASSERT_TRUE(cmtest::haveTool("ffmpeg")) << "ffmpeg is needed: scripts/install-deps.sh";
    cmtest::TempDir dir;
    const std::string mp4 = makeSource(dir, "in.mp4");
    const std::string mkv = makeSource(dir, "in.mkv");
    const struct {
        const std::string& input;
        const char* output;
    } cases[] = {
        {mp4, "out.mkv"}, {mp4, "out.ts"}, {mp4, "out.mov"}, {mkv, "out.webm"}, {mkv, "out.mp4"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.output);
        const std::string output = dir.file(c.output);
        RPtr<RAvImporter> importer(new RAvImporter);
        RPtr<RAvExporter> exporter(new RAvExporter);
        cmtest::Graph graph{importer.addr(), {{}, {}}, exporter.addr()};
        ASSERT_EQ(cmtest::runGraph(graph, c.input, output), kResultOK);
        EXPECT_EQ(importer->getStatus().mExtra, 0u) << importer->getStatus().mInfo.c_str();
        EXPECT_EQ(exporter->getStatus().mExtra, 0u) << exporter->getStatus().mInfo.c_str();

        auto source = cmtest::probeStreams(c.input, true);
        auto copy = cmtest::probeStreams(output, true);
        ASSERT_EQ(copy.size(), 2u);
        for (std::size_t i = 0; i < 2; ++i) {
            SCOPED_TRACE(source[i]["codec_name"]);
            EXPECT_EQ(copy[i]["codec_name"], source[i]["codec_name"]);
            EXPECT_EQ(copy[i]["nb_read_packets"], source[i]["nb_read_packets"]);
            // Matroska keeps no duration per track.
            const double copied = cmtest::probedNumber(copy[i], "duration");
            const double sourced = cmtest::probedNumber(source[i], "duration");
            if (i == 0 && !std::isnan(copied) && !std::isnan(sourced)) {
                EXPECT_NEAR(copied, sourced, 0.04);
            }
        }
        EXPECT_NEAR(cmtest::probeDuration(output), cmtest::probeDuration(c.input), 0.05);
    }
}

// All the frames of the first input arrive before the first frame of the second, through
// queues that hold two: an exporter that waited on one input while another filled up
// would never finish. Every frame of both makes it into the file.
TEST(AvExporterTest, NoInputWaitsOnAnother) {
    cmtest::TempDir dir;
    const auto tracks = importAll(makeSource(dir, "in.mp4"));
    ASSERT_EQ(tracks.size(), 2u);
    RPtr<RAvExporter> exporter(new RAvExporter);
    const CComponentStatus status = cmtest::exportTracks(*exporter, dir.file("out.mkv"), tracks);
    EXPECT_EQ(status.mExtra, 0u) << status.mInfo.c_str();
    EXPECT_EQ(static_cast<std::size_t>(status.mFrames),
              tracks[0].frames.size() + tracks[1].frames.size());
    auto streams = cmtest::probeStreams(dir.file("out.mkv"), true);
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[0]["nb_read_frames"], std::to_string(tracks[0].frames.size()));
}

// Each failure says what it is, and the inputs are still read to their ends (exportTracks
// would wait for ever otherwise): a codec the container does not carry, an extension
// without a container, an input without a description, a disk that fills up.
TEST(AvExporterTest, FailuresSayWhatWentWrong) {
    cmtest::TempDir dir;
    const auto tracks = importAll(makeSource(dir, "in.mp4"));
    ASSERT_EQ(tracks.size(), 2u);
    std::vector<cmtest::Track> undescribed = tracks;
    undescribed[1].description = nullptr;
    cmtest::FullDisk disk(cmtest::FullDisk::Kind::kFileSizeLimit, 4096);
    const struct {
        const char* name;
        std::string path;
        const std::vector<cmtest::Track>& tracks;
        int result;
        const char* says;
    } cases[] = {
        {"H.264 into WebM", dir.file("out.webm"), tracks, kResultNoValidTracks,
         "input 1: webm does not carry \"avc1\""},
        {"no container", dir.file("out.xyz"), tracks, kResultNoExporter,
         "no container for \"xyz\" files"},
        {"no description", dir.file("out.mkv"), undescribed, kResultNoValidTracks,
         "input 2 came without a description"},
        {"full disk", disk.file("out.mkv"), tracks, kResultFileWriteFailed, "failed"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RPtr<RAvExporter> exporter(new RAvExporter);
        EXPECT_TRUE(
            cmtest::endedWith(cmtest::exportTracks(*exporter, c.path, c.tracks), c.result, c.says));
    }
}
