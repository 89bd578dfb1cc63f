#include "y4m.importer/Y4MImporter.h"

#include <gtest/gtest.h>

#include "y4m.exporter/Y4MExporter.h"

#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>
#include <zrbase/timecode.h>

#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <fcntl.h>

#include <string>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::RY4MExporter;
using cmcomponents::RY4MImporter;
using cmtest::Bytes;

namespace {

// A Y4M file made here: the header line, then count pictures of pictureSize bytes, picture
// i filled with the byte i.
Bytes y4mFile(const std::string& header, unsigned int count, std::size_t pictureSize) {
    Bytes file(header.begin(), header.end());
    for (unsigned int i = 0; i < count; ++i) {
        const std::string frame = "FRAME\n";
        file.insert(file.end(), frame.begin(), frame.end());
        file.insert(file.end(), pictureSize, static_cast<unsigned char>(i));
    }
    return file;
}

// Runs the file through importer and exporter; the importer's status.
CComponentStatus importAndExport(const std::string& in, const std::string& out) {
    RPtr<RY4MImporter> importer(new RY4MImporter);
    RPtr<RY4MExporter> exporter(new RY4MExporter);
    cmtest::Pipeline p{importer.addr(), nullptr, nullptr, exporter.addr()};
    EXPECT_EQ(cmtest::runPipeline(p, in, out), kResultOK);
    EXPECT_EQ(exporter->getStatus().mExtra, 0u) << exporter->getStatus().mInfo.c_str();
    return importer->getStatus();
}

}  // namespace

// Gradients written by ffmpeg in every chroma layout, at odd sizes and fractional rates,
// go through importer, queue and exporter on their threads; ffprobe and ffmpeg find the
// same size, layout, rate, frame count and pictures in the exporter's file.
TEST(Y4MImporterTest, FfmpegFilesComeOutOfThePipelineUnchanged) {
    ASSERT_TRUE(cmtest::haveTool("ffmpeg") && cmtest::haveTool("ffprobe"))
        << "ffmpeg is needed: scripts/install-deps.sh";
    const struct {
        unsigned int width, height;
        const char* chroma;
        const char* rate;
        unsigned int frames;
    } cases[] = {{33, 17, "420", "30000/1001", 7},
                 {64, 48, "422", "25/1", 5},
                 {31, 9, "444", "24000/1001", 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.chroma) + " " + c.rate);
        cmtest::TempDir dir;
        const Bytes pictures = cmtest::makeGradient(c.width, c.height, c.chroma, c.frames);
        ASSERT_TRUE(cmtest::writeY4MWithFfmpeg(dir.file("in.y4m"), pictures, c.width, c.height,
                                               c.chroma, c.rate));
        const CComponentStatus status = importAndExport(dir.file("in.y4m"), dir.file("out.y4m"));
        EXPECT_EQ(status.mExtra, 0u) << status.mInfo.c_str();
        EXPECT_EQ(status.mFrames, static_cast<int>(c.frames));

        auto stream = cmtest::probeStream(dir.file("out.y4m"), true);
        EXPECT_EQ(stream["width"], std::to_string(c.width));
        EXPECT_EQ(stream["height"], std::to_string(c.height));
        EXPECT_EQ(stream["pix_fmt"], std::string("yuv") + c.chroma + "p");
        EXPECT_EQ(stream["r_frame_rate"], c.rate);
        EXPECT_EQ(stream["nb_read_frames"], std::to_string(c.frames));
        EXPECT_EQ(cmtest::decodeWithFfmpeg(dir.file("out.y4m"), "rawvideo"), pictures);
    }
}

// Frames read straight from the importer's queue: numbered, stamped i / rate, lasting
// 1 / rate, and labelled with timecodes; 29.97 fps labels drop two frame numbers at the
// minute, and 12.5 fps labels advance two per frame in the 25 fps mode.
TEST(Y4MImporterTest, FramesCarryNumbersTimesAndTimecodes) {
    cmtest::TempDir dir;
    const struct {
        const char* header;
        unsigned int frames;
        double rate;
        zrbase::timecode::mode_type mode;
        unsigned int probe;
        const char* label;
    } cases[] = {
        {"YUV4MPEG2 W2 H2 F30000:1001 C420jpeg\n", 1802, 30000.0 / 1001,
         zrbase::timecode::mode_29_97_drop, 1800, "00:01:00;02"},
        {"YUV4MPEG2 W2 H2 F30000:1001 C420jpeg\n", 1802, 30000.0 / 1001,
         zrbase::timecode::mode_29_97_drop, 1799, "00:00:59;29"},
        {"YUV4MPEG2 W2 H2 F25:2\n", 30, 12.5, zrbase::timecode::mode_25, 25, "00:00:02:00"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.header);
        cmtest::writeFile(dir.file("in.y4m"), y4mFile(c.header, c.frames, 6));
        RPtr<RQueue> queue(new RQueue(4, 16, ZR::CString("video")));
        std::vector<RQueue*> outputs{queue.addr()};
        RPtr<RY4MImporter> importer(new RY4MImporter);
        importer->init(cmtest::fileStream(dir.file("in.y4m"), O_RDONLY), outputs);
        ASSERT_EQ(importer->openSource(), kResultOK);
        RPtr<RMovieInfo> movie = importer->getMovieInfo();
        ASSERT_EQ(movie->getTracksForMedia(ZR::fourcc("vide")).size(), 1u);
        EXPECT_EQ(movie->mTracks[0]->mTrackSize, c.frames);
        EXPECT_DOUBLE_EQ(movie->mMovieDuration, c.frames / c.rate);

        RPtr<RQFrameReader> reader(new RQFrameReader(queue.addr(), nullptr));
        importer->start(nullptr);
        const auto* description = static_cast<const RVideoDescription*>(reader->getDescriptionP());
        EXPECT_EQ(description->mVideoInt1, 2u);
        EXPECT_EQ(description->mVideoInt3, cmcomponents::kPlanar420);
        EXPECT_DOUBLE_EQ(description->mFrameRate, c.rate);
        unsigned int count = 0;
        while (RPtr<RFrame> frame = reader->nextFrame()) {
            const auto& video = static_cast<const RVideoFrame&>(*frame);
            EXPECT_EQ(video.getFrameNumber(), count);
            EXPECT_NEAR(video.getStartTime(), count / c.rate, 1e-9);
            EXPECT_NEAR(video.getDuration(), 1 / c.rate, 1e-9);
            EXPECT_EQ(video.getDataFormat(), cmcomponents::kPlanar420);
            ASSERT_EQ(video.getSize(), 6u);
            EXPECT_EQ(video.getData()[5], static_cast<unsigned char>(count));
            EXPECT_EQ(video.getTimecode().mode(), c.mode);
            if (count == c.probe) {
                EXPECT_EQ(zrbase::string_with_timecode(video.getTimecode(), true), c.label);
            }
            ++count;
        }
        importer->join();
        EXPECT_EQ(count, c.frames);
        importer->reset();
    }
}

// Headers that are not Y4M, cut short or endless are refused by openSource(), layouts the
// components do not carry likewise; a picture cut short or a broken frame header ends the
// track after the frames before it, which reach the exporter's file intact.
TEST(Y4MImporterTest, BadHeadersAreRefusedAndBrokenFramesEndTheTrack) {
    ASSERT_TRUE(cmtest::haveTool("ffprobe")) << "ffmpeg is needed: scripts/install-deps.sh";
    cmtest::TempDir dir;
    const std::string header = "YUV4MPEG2 W4 H4 F25:1 C444\n";
    const struct {
        const char* name;
        Bytes content;
        int result;
    } refused[] = {
        {"empty", {}, kResultInputMetaDataParseFailed},
        {"unended", y4mFile("YUV4MPEG2 W4 H4 F25:1", 0, 0), kResultInputMetaDataParseFailed},
        {"endless", Bytes(100000, 'W'), kResultInputMetaDataParseFailed},
        {"binary", Bytes(64, 0), kResultInputMetaDataParseFailed},
        {"ten bits", y4mFile("YUV4MPEG2 W4 H4 F25:1 C420p10\n", 1, 48), kResultNoValidTracks},
    };
    for (const auto& r : refused) {
        cmtest::writeFile(dir.file(r.name), r.content);
        RPtr<RY4MImporter> importer(new RY4MImporter);
        EXPECT_EQ(cmtest::openOn(*importer, dir.file(r.name)), r.result) << r.name;
        EXPECT_EQ(importer->getStatus().mExtra, static_cast<unsigned int>(r.result));
        EXPECT_TRUE(importer->getMovieInfo()->mTracks.empty());
        importer->reset();
    }
    RPtr<RY4MImporter> missing(new RY4MImporter);
    EXPECT_EQ(cmtest::openOn(*missing, dir.file("missing")), kResultFileOpenFailed);
    missing->reset();

    Bytes cut = y4mFile(header, 3, 48);
    cut.resize(cut.size() - 20);
    Bytes badFrame = y4mFile(header, 1, 48);
    const std::string notFrame = "FRAMX\n";
    badFrame.insert(badFrame.end(), notFrame.begin(), notFrame.end());
    badFrame.resize(badFrame.size() + 48, 1);
    Bytes endlessFrame = y4mFile(header, 2, 48);
    endlessFrame.resize(endlessFrame.size() + 5000, 'F');
    const struct {
        const char* name;
        Bytes content;
        int result;
        unsigned int frames;
    } broken[] = {{"cut", cut, kResultFileReadFailed, 2},
                  {"framx", badFrame, kResultInputMetaDataParseFailed, 1},
                  {"endless frame header", endlessFrame, kResultInputMetaDataParseFailed, 2}};
    for (const auto& b : broken) {
        SCOPED_TRACE(b.name);
        cmtest::writeFile(dir.file("in.y4m"), b.content);
        const CComponentStatus status = importAndExport(dir.file("in.y4m"), dir.file("out.y4m"));
        EXPECT_TRUE(cmtest::endedWith(status, b.result, "frame " + std::to_string(b.frames)));
        EXPECT_EQ(status.mFrames, static_cast<int>(b.frames));
        EXPECT_EQ(cmtest::probeStream(dir.file("out.y4m"), true)["nb_read_frames"],
                  std::to_string(b.frames));
    }
}
