#include "wav.importer/WavImporter.h"

#include <gtest/gtest.h>

#include "wav.exporter/WavExporter.h"

#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <fcntl.h>

#include <string>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::RWavExporter;
using cmcomponents::RWavImporter;
using cmtest::Bytes;

namespace {

const char* codecFor(unsigned int bits) {
    return bits == 8 ? "pcm_u8" : bits == 16 ? "pcm_s16le" : "pcm_s24le";
}

const char* rawFormatFor(unsigned int bits) {
    return bits == 8 ? "u8" : bits == 16 ? "s16le" : "s24le";
}

}  // namespace

// Files written by sox, for every sample width and up to eight channels, go through
// importer, queue and exporter on their threads; ffprobe and ffmpeg find the same format,
// the same number of samples and the same samples in what the exporter wrote.
TEST(WavImporterTest, SoxFilesComeOutOfThePipelineUnchanged) {
    ASSERT_TRUE(cmtest::haveTool("sox") && cmtest::haveTool("ffprobe"))
        << "sox and ffmpeg are needed: scripts/install-deps.sh";
    const struct {
        unsigned int bits, channels, rate, frames;
    } cases[] = {
        {8, 1, 8000, 3001}, {16, 2, 44100, 4410}, {24, 6, 48000, 2000}, {16, 8, 22050, 999}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.bits) + " bits, " + std::to_string(c.channels) + " channels");
        cmtest::TempDir dir;
        const Bytes tone = cmtest::makeTone(c.bits, c.channels, c.frames, 0.8);
        ASSERT_TRUE(cmtest::writeWavWithSox(dir.file("in.wav"), tone, c.rate, c.bits, c.channels));

        RPtr<RWavImporter> importer(new RWavImporter);
        RPtr<RWavExporter> exporter(new RWavExporter);
        cmtest::Pipeline p{importer.addr(), nullptr, nullptr, exporter.addr()};
        p.importerConfiguration.setInt("samples-per-frame", 256);
        ASSERT_EQ(cmtest::runPipeline(p, dir.file("in.wav"), dir.file("out.wav")), kResultOK);
        EXPECT_EQ(importer->getStatus().mExtra, 0u) << importer->getStatus().mInfo.c_str();
        EXPECT_EQ(exporter->getStatus().mExtra, 0u) << exporter->getStatus().mInfo.c_str();
        EXPECT_EQ(exporter->getStatus().mStatusCode, CComponentStatus::kCompleted);
        EXPECT_EQ(exporter->getStatus().mFrames, static_cast<int>((c.frames + 255) / 256));
        EXPECT_EQ(exporter->getStatus().mBytes, static_cast<int>(tone.size()));

        auto stream = cmtest::probeStream(dir.file("out.wav"), false);
        EXPECT_EQ(stream["codec_name"], codecFor(c.bits));
        EXPECT_EQ(stream["sample_rate"], std::to_string(c.rate));
        EXPECT_EQ(stream["channels"], std::to_string(c.channels));
        EXPECT_EQ(stream["duration_ts"], std::to_string(c.frames));
        const cmtest::ToolRun sox =
            cmtest::runCommand("sox --i -s " + cmtest::shellQuote(dir.file("out.wav")));
        EXPECT_EQ(sox.output, std::to_string(c.frames) + "\n");
        EXPECT_EQ(cmtest::decodeWithFfmpeg(dir.file("out.wav"), rawFormatFor(c.bits)), tone);
    }
}

// The importer's frames, read straight from its queue: the description, the data format,
// frames of samples-per-frame sample frames with their times, and every sample in order.
TEST(WavImporterTest, FramesCarryTheDescriptionTimesAndSamples) {
    ASSERT_TRUE(cmtest::haveTool("sox")) << "sox is needed: scripts/install-deps.sh";
    cmtest::TempDir dir;
    const unsigned int frames = 1000, perFrame = 300;
    const Bytes tone = cmtest::makeTone(24, 3, frames, 0.5);
    ASSERT_TRUE(cmtest::writeWavWithSox(dir.file("in.wav"), tone, 32000, 24, 3));

    RPtr<RQueue> queue(new RQueue(1, 2, ZR::CString("audio")));
    std::vector<RQueue*> outputs{queue.addr()};
    RPtr<RWavImporter> importer(new RWavImporter);
    importer->init(cmtest::fileStream(dir.file("in.wav"), O_RDONLY), outputs);
    RPtr<RImporterConfiguration> configuration(new RImporterConfiguration);
    configuration->setInt("samples-per-frame", perFrame);
    importer->configure(*configuration);
    ASSERT_EQ(importer->openSource(), kResultOK);
    RPtr<RMovieInfo> movie = importer->getMovieInfo();
    ASSERT_EQ(movie->getTracksForMedia(ZR::fourcc("audi")).size(), 1u);
    const auto* track = static_cast<const RAudioTrackInfo*>(movie->mTracks[0]);
    EXPECT_EQ(track->mTrackSize, frames);
    EXPECT_EQ(track->mKindValue1, 3u);
    EXPECT_EQ(track->mKindValue2, 24u);
    EXPECT_DOUBLE_EQ(movie->mMovieDuration, frames / 32000.0);

    RPtr<RQFrameReader> reader(new RQFrameReader(queue.addr(), nullptr));
    importer->start(nullptr);
    const auto* description = static_cast<const RAudioDescription*>(reader->getDescriptionP());
    ASSERT_EQ(description->type(), ZR::fourcc("audi"));
    EXPECT_EQ(description->mChannels, 3u);
    EXPECT_EQ(description->mBytesPerSample, 3u);
    EXPECT_EQ(description->mSampleRate, 32000.0);
    Bytes samples;
    unsigned int count = 0;
    while (RPtr<RFrame> frame = reader->nextFrame()) {
        EXPECT_EQ(frame->getDataFormat(), cmcomponents::kLinearPCM);
        const unsigned int expected = std::min(perFrame, frames - count * perFrame);
        EXPECT_EQ(frame->getSize(), expected * 9);
        EXPECT_DOUBLE_EQ(frame->getStartTime(), count * perFrame / 32000.0);
        EXPECT_DOUBLE_EQ(frame->getDuration(), expected / 32000.0);
        samples.insert(samples.end(), frame->getData(), frame->getData() + frame->getSize());
        ++count;
    }
    importer->join();
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(samples, tone);
    importer->reset();
}

// Files that are not WAV, are cut inside their header or name no file are refused by
// openSource() with a result that says so, also in the status; an importer started anyway
// ends its queue at once. A file cut inside its samples imports the whole sample frames
// that are there.
TEST(WavImporterTest, BadFilesAreRefusedAndCutFilesImportWhatTheyHold) {
    ASSERT_TRUE(cmtest::haveTool("sox") && cmtest::haveTool("ffprobe"))
        << "sox and ffmpeg are needed: scripts/install-deps.sh";
    cmtest::TempDir dir;
    const Bytes tone = cmtest::makeTone(16, 2, 500, 0.5);
    ASSERT_TRUE(cmtest::writeWavWithSox(dir.file("good.wav"), tone, 48000, 16, 2));
    const Bytes good = cmtest::readFile(dir.file("good.wav"));
    cmtest::writeFile(dir.file("empty.wav"), {});
    cmtest::writeFile(dir.file("header.wav"), Bytes(good.begin(), good.begin() + 30));
    cmtest::writeFile(dir.file("text.wav"), Bytes(200, 'a'));

    const struct {
        const char* name;
        int result;
    } refused[] = {{"empty.wav", kResultInputMetaDataParseFailed},
                   {"header.wav", kResultInputMetaDataParseFailed},
                   {"text.wav", kResultInputMetaDataParseFailed},
                   {"missing.wav", kResultFileOpenFailed}};
    for (const auto& r : refused) {
        RPtr<RWavImporter> importer(new RWavImporter);
        EXPECT_EQ(cmtest::openOn(*importer, dir.file(r.name)), r.result) << r.name;
        const CComponentStatus status = importer->getStatus();
        EXPECT_EQ(status.mExtra, static_cast<unsigned int>(r.result));
        EXPECT_EQ(std::string(status.mInfo.c_str()).find(stringWithResultCode(r.result)), 0u)
            << status.mInfo.c_str();
        EXPECT_TRUE(importer->getMovieInfo()->mTracks.empty());
        importer->reset();
    }

    // A failure belongs to its attempt: the same importer opens a good file afterwards.
    RPtr<RWavImporter> retried(new RWavImporter);
    EXPECT_NE(cmtest::openOn(*retried, dir.file("text.wav")), kResultOK);
    retried->reset();
    RPtr<RStream> stream = cmtest::fileStream(dir.file("good.wav"), O_RDONLY);
    std::vector<RQueue*> none;
    retried->init(stream, none);
    EXPECT_EQ(retried->openSource(), kResultOK);
    EXPECT_EQ(retried->getStatus().mExtra, 0u);
    retried->reset();
    EXPECT_EQ(stream->retain_count(), 1);  // reset() let go of the stream

    RPtr<RQueue> queue(new RQueue(0, 0, ZR::CString("audio")));
    std::vector<RQueue*> outputs{queue.addr()};
    RPtr<RWavImporter> unopened(new RWavImporter);
    unopened->init(cmtest::fileStream(dir.file("text.wav"), O_RDONLY), outputs);
    RPtr<RQFrameReader> reader(new RQFrameReader(queue.addr(), nullptr));
    unopened->start(nullptr);
    unopened->join();
    EXPECT_FALSE(reader->nextFrame());
    EXPECT_EQ(unopened->getStatus().mExtra, static_cast<unsigned int>(kResultComponentInitFailed));
    unopened->reset();

    // Cut in the middle of a sample frame: 123 whole frames survive.
    const std::size_t header = good.size() - tone.size();
    cmtest::writeFile(dir.file("cut.wav"),
                      Bytes(good.begin(), good.begin() + header + 123 * 4 + 3));
    RPtr<RWavImporter> importer(new RWavImporter);
    RPtr<RWavExporter> exporter(new RWavExporter);
    cmtest::Pipeline p{importer.addr(), nullptr, nullptr, exporter.addr()};
    ASSERT_EQ(cmtest::runPipeline(p, dir.file("cut.wav"), dir.file("out.wav")), kResultOK);
    EXPECT_EQ(cmtest::probeStream(dir.file("out.wav"), false)["duration_ts"], "123");
    EXPECT_EQ(cmtest::decodeWithFfmpeg(dir.file("out.wav"), "s16le"),
              Bytes(tone.begin(), tone.begin() + 123 * 4));
}
