#include "wav.exporter/WavExporter.h"

#include <gtest/gtest.h>

#include <cm/CMFrame.h>

#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <string>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::kLinearPCM;
using cmcomponents::RWavExporter;
using cmtest::Bytes;

namespace {

RPtr<RAudioDescription> audio(unsigned int channels, unsigned int bytes, double rate) {
    RPtr<RAudioDescription> d(new RAudioDescription);
    d->mChannels = channels;
    d->mBytesPerSample = bytes;
    d->mSampleRate = rate;
    return d;
}

// The bytes cut into frames of the given sizes, cycling through them.
std::vector<RPtr<RFrame>> framesOf(const Bytes& bytes, const std::vector<std::size_t>& sizes,
                                   unsigned int format = kLinearPCM) {
    std::vector<RPtr<RFrame>> frames;
    for (std::size_t at = 0, i = 0; at < bytes.size(); ++i) {
        const std::size_t n = std::min(sizes[i % sizes.size()], bytes.size() - at);
        frames.emplace_back(RAudioFrame::createWithData(
            format, static_cast<unsigned int>(n), const_cast<unsigned char*>(bytes.data() + at), 0,
            0, ZR::ConstructionCopy));
        at += n;
    }
    return frames;
}

CComponentStatus exportTo(const std::string& path, const RDescription* description,
                          const std::vector<RPtr<RFrame>>& frames) {
    RPtr<RWavExporter> exporter(new RWavExporter);
    return cmtest::exportFrames(*exporter, path, description, frames);
}

}  // namespace

// Frames of any size, splitting sample frames between them, make a valid file: a sample
// frame the input left incomplete is completed with zeros, an odd data size gets its pad
// byte, and the tools count and decode exactly the samples that went in.
TEST(WavExporterTest, FramesOfAnySizeMakeAValidFile) {
    ASSERT_TRUE(cmtest::haveTool("sox") && cmtest::haveTool("ffprobe"))
        << "sox and ffmpeg are needed: scripts/install-deps.sh";
    cmtest::TempDir dir;

    Bytes tone = cmtest::makeTone(16, 3, 1000, 0.7);
    tone.resize(tone.size() - 4);  // the last sample frame is two bytes short
    const CComponentStatus status = exportTo(dir.file("three.wav"), audio(3, 2, 32000).addr(),
                                             framesOf(tone, {1, 5, 7, 1000, 13}));
    EXPECT_EQ(status.mExtra, 0u) << status.mInfo.c_str();
    EXPECT_EQ(status.mBytes, static_cast<int>(tone.size()));
    auto stream = cmtest::probeStream(dir.file("three.wav"), false);
    EXPECT_EQ(stream["codec_name"], "pcm_s16le");
    EXPECT_EQ(stream["channels"], "3");
    EXPECT_EQ(stream["sample_rate"], "32000");
    EXPECT_EQ(stream["duration_ts"], "1000");
    Bytes completed = tone;
    completed.resize(tone.size() + 4, 0);
    EXPECT_EQ(cmtest::decodeWithFfmpeg(dir.file("three.wav"), "s16le"), completed);

    const Bytes odd = cmtest::makeTone(8, 1, 1001, 0.9);
    exportTo(dir.file("odd.wav"), audio(1, 1, 11025).addr(), framesOf(odd, {100}));
    const Bytes file = cmtest::readFile(dir.file("odd.wav"));
    ASSERT_EQ(file.size(), 44u + 1001 + 1);
    EXPECT_EQ(file[4] | (file[5] << 8), 4 + 24 + 8 + 1001 + 1);  // the RIFF size
    EXPECT_EQ(cmtest::runCommand("sox --i -s " + cmtest::shellQuote(dir.file("odd.wav"))).output,
              "1001\n");
    EXPECT_EQ(cmtest::decodeWithFfmpeg(dir.file("odd.wav"), "u8"), odd);

    // An input that ends without frames, but described, gives an empty track.
    exportTo(dir.file("empty.wav"), audio(2, 3, 48000).addr(), {});
    EXPECT_EQ(cmtest::runCommand("sox --i -s " + cmtest::shellQuote(dir.file("empty.wav"))).output,
              "0\n");
    EXPECT_EQ(cmtest::probeStream(dir.file("empty.wav"), false)["codec_name"], "pcm_s24le");
}

// Input the exporter cannot write fails the run with a result that says why; the exporter
// still reads its input to the end, so the producer (this thread, on a queue of two
// frames) is never left waiting.
TEST(WavExporterTest, InputItCannotWriteFailsTheRunAndIsDrained) {
    cmtest::TempDir dir;
    const Bytes tone = cmtest::makeTone(16, 2, 4000, 0.5);
    const auto frames = framesOf(tone, {400});

    RPtr<RVideoDescription> video(new RVideoDescription);
    CComponentStatus status = exportTo(dir.file("video.wav"), video.addr(), frames);
    EXPECT_EQ(status.mExtra, static_cast<unsigned int>(kResultNoValidTracks));
    EXPECT_EQ(status.mStatusCode, CComponentStatus::kCompleted);
    EXPECT_TRUE(cmtest::readFile(dir.file("video.wav")).empty());

    status = exportTo(dir.file("float.wav"), audio(2, 4, 48000).addr(), frames);
    EXPECT_EQ(status.mExtra, static_cast<unsigned int>(kResultNoValidTracks));

    status = exportTo(dir.file("twos.wav"), audio(2, 2, 48000).addr(),
                      framesOf(tone, {400}, ZR::fourcc("twos")));
    EXPECT_EQ(status.mExtra, static_cast<unsigned int>(kResultNoValidTracks));
    EXPECT_EQ(status.mFrames, 0);

    status = exportTo(dir.file("undescribed.wav"), nullptr, {});
    EXPECT_EQ(status.mExtra, static_cast<unsigned int>(kResultNoValidTracks));

    status = exportTo(dir.path(), audio(2, 2, 48000).addr(), frames);  // a directory
    EXPECT_TRUE(cmtest::endedWith(status, kResultFileOpenFailed, dir.path()));
}
