#include "av/AvEncoder.h"

#include <gtest/gtest.h>

#include "aac.encoder/AacEncoder.h"
#include "av.decoder/AvDecoder.h"
#include "av.exporter/AvExporter.h"
#include "av.importer/AvImporter.h"
#include "common/CodedMedia.h"
#include "common/PlanarPicture.h"
#include "common/WavFormat.h"
#include "h264.encoder/H264Encoder.h"
#include "h265.encoder/H265Encoder.h"
#include "opus.encoder/OpusEncoder.h"
#include "vp9.encoder/Vp9Encoder.h"
#include "wav.importer/WavImporter.h"
#include "y4m.importer/Y4MImporter.h"

#include <cm/CMComponentStatus.h>

#include "support/CodedPipelines.h"
#include "support/MediaPipeline.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::EncoderSpec;
using cmcomponents::RAvEncoder;
using Bytes = std::vector<unsigned char>;

namespace {

std::vector<double> samplesOf(const Bytes& bytes) {
    std::vector<double> samples(bytes.size() / 2);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<std::int16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    }
    return samples;
}

// The signal-to-noise ratio (dB) of x against y moved by lag, over count samples at most.
double snrAt(const std::vector<double>& x, const std::vector<double>& y, std::size_t lag,
             std::size_t count) {
    double signal = 0.0, noise = 0.0;
    for (std::size_t i = 0; i < count && i < x.size() && i + lag < y.size(); ++i) {
        signal += x[i] * x[i];
        noise += (x[i] - y[i + lag]) * (x[i] - y[i + lag]);
    }
    return 10.0 * std::log10(signal / std::max(noise, 1.0));
}

// The signal-to-noise ratio (dB) of the 16-bit samples b against a, with b moved by the
// delay (up to 4096 samples) that matches their first tenth of a second best: containers
// that cannot say how much priming an encoder put first leave it to be played.
double snr(const Bytes& a, const Bytes& b) {
    const std::vector<double> x = samplesOf(a), y = samplesOf(b);
    std::size_t best = 0;
    for (std::size_t lag = 1; lag <= 4096; ++lag) {
        if (snrAt(x, y, lag, 4800) > snrAt(x, y, best, 4800)) {
            best = lag;
        }
    }
    return snrAt(x, y, best, x.size());
}

}  // namespace

// Raw pictures and samples from the Y4M and WAV importers go through each encoder into
// each kind of container the exporter writes; ffprobe finds the codec, every frame and the
// duration, the pictures keep their quality and the sound its shape.
TEST(AvEncoderTest, EncodesIntoEveryContainer) {
    ASSERT_TRUE(cmtest::haveTool("ffmpeg")) << "ffmpeg is needed: scripts/install-deps.sh";
    cmtest::TempDir dir;
    const std::string pictures = dir.file("in.y4m");
    ASSERT_TRUE(cmtest::makeWithFfmpeg("-f lavfi -i testsrc=s=64x48:r=25:d=0.4 -pix_fmt yuv420p",
                                       pictures));
    const std::string tone = dir.file("in.wav");
    ASSERT_TRUE(cmtest::makeWithFfmpeg("-f lavfi -i sine=f=440:d=0.5 -ac 2", tone));
    const std::string tone24 = dir.file("in24.wav");
    ASSERT_TRUE(cmtest::makeWithFfmpeg(
        "-f lavfi -i sine=f=440:d=0.5:sample_rate=22050 -c:a pcm_s24le", tone24));
    const struct {
        const EncoderSpec& spec;
        const char* settings;
        const char* output;
        const char* codec;   // ffprobe's name
        const char* ffmpeg;  // audio: the same encoding by ffmpeg
    } cases[] = {
        {cmcomponents::h264EncoderSpec(), "preset=ultrafast", "h264.mp4", "h264", nullptr},
        {cmcomponents::h264EncoderSpec(), "preset=ultrafast,keyint=4", "h264.ts", "h264", nullptr},
        {cmcomponents::h265EncoderSpec(), "preset=ultrafast,crf=22", "h265.mkv", "hevc", nullptr},
        {cmcomponents::vp9EncoderSpec(), "preset=realtime,speed=8", "vp9.webm", "vp9", nullptr},
        {cmcomponents::aacEncoderSpec(), "", "aac.m4a", "aac", "-c:a aac"},
        {cmcomponents::aacEncoderSpec(), "bitrate=96000", "aac.ts", "aac", "-c:a aac -b:a 96000"},
        {cmcomponents::opusEncoderSpec(), "", "opus.webm", "opus", "-c:a libopus"},
        {cmcomponents::aacEncoderSpec(), "", "aac24.mkv", "aac", "-c:a aac"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.output);
        const bool video = c.spec.media == ZR::fourcc("vide");
        const bool wide = std::string(c.output).find("24") != std::string::npos;
        const std::string input = video ? pictures : wide ? tone24 : tone;
        const std::string output = dir.file(c.output);
        RPtr<RImporter> importer(video ? static_cast<RImporter*>(new cmcomponents::RY4MImporter)
                                       : new cmcomponents::RWavImporter);
        RPtr<RAvEncoder> encoder(new RAvEncoder(c.spec));
        RPtr<RExporter> exporter(new cmcomponents::RAvExporter);
        ASSERT_EQ(encoder->configure(*cmtest::settingsOf(c.settings)), kResultOK);
        cmtest::Pipeline p{importer.addr(), encoder.addr(), nullptr, exporter.addr()};
        ASSERT_EQ(cmtest::runPipeline(p, input, output), kResultOK);
        EXPECT_EQ(encoder->getStatus().mExtra, 0u) << encoder->getStatus().mInfo.c_str();
        EXPECT_EQ(exporter->getStatus().mExtra, 0u) << exporter->getStatus().mInfo.c_str();

        auto stream = cmtest::probeStream(output, true);
        EXPECT_EQ(stream["codec_name"], c.codec);
        if (video) {
            EXPECT_EQ(stream["nb_read_frames"], "10");
            EXPECT_GE(cmtest::psnrWithFfmpeg(output, pictures), 35.0);
            continue;
        }
        // As long as ffmpeg's own encoding once decoded, and the same sound.
        const std::string reference = dir.file(std::string("ffmpeg-") + c.output);
        ASSERT_TRUE(
            cmtest::makeWithFfmpeg("-i " + cmtest::shellQuote(input) + " " + c.ffmpeg, reference));
        const std::string raw = "s16le -ac 1 -ar 48000";
        const Bytes decoded = cmtest::decodeWithFfmpeg(output, raw);
        EXPECT_NEAR(static_cast<double>(decoded.size()),
                    static_cast<double>(cmtest::decodeWithFfmpeg(reference, raw).size()), 2 * 1024);
        EXPECT_GE(snr(cmtest::decodeWithFfmpeg(input, raw), decoded), 15.0);
    }
}

// Settings are checked against each encoder's table: an unknown key, a number out of
// range or not a number, a word not in the list are refused with a line that says which.
TEST(AvEncoderTest, RefusesSettingsItDoesNotTake) {
    const struct {
        const EncoderSpec& spec;
        const char* key;
        const char* value;
        const char* says;  // null: taken
    } cases[] = {
        {cmcomponents::h264EncoderSpec(), "crff", "20", "h264 encoder has no setting \"crff\""},
        {cmcomponents::h264EncoderSpec(), "crf", "52", "crf \"52\" is not between 0 and 51"},
        {cmcomponents::h264EncoderSpec(), "preset", "fastest", "is not one of ultrafast"},
        {cmcomponents::h264EncoderSpec(), "keyint", "ten", "is not a whole number"},
        {cmcomponents::h264EncoderSpec(), "crf", "18", nullptr},
        {cmcomponents::h265EncoderSpec(), "profile", "main444-8", nullptr},
        {cmcomponents::vp9EncoderSpec(), "speed", "9", "is not between -8 and 8"},
        {cmcomponents::aacEncoderSpec(), "profile", "he", "is not one of aac_low"},
        {cmcomponents::opusEncoderSpec(), "bitrate", "1000", "is not between 6000 and 510000"},
        {cmcomponents::opusEncoderSpec(), "preset", "fast", "opus encoder has no setting"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.spec.owner + ": " + c.key + "=" + c.value);
        RPtr<RAvEncoder> encoder(new RAvEncoder(c.spec));
        const int result =
            encoder->configure(*cmtest::settingsOf(std::string(c.key) + "=" + c.value));
        if (!c.says) {
            EXPECT_EQ(result, kResultOK);
            continue;
        }
        EXPECT_EQ(result, kResultSettingParseFailed);
        // A run after a refused configuration fails with the same line.
        const cmtest::Filtered out = cmtest::filterFrames(*encoder, nullptr, nullptr, {});
        EXPECT_TRUE(cmtest::endedWith(encoder->getStatus(), kResultSettingParseFailed, c.says));
    }
}

// Input an encoder cannot take, or settings that do not fit the input, fail the run with a
// result that says which; the output ends without frames.
TEST(AvEncoderTest, RefusesInputItCannotEncode) {
    cmcomponents::PlanarPicture picture;
    picture.width = 64;
    picture.height = 48;
    picture.chroma = cmcomponents::kPlanar444;
    const RPtr<RDescription> pictures(picture.createDescription(25.0));
    cmcomponents::WavFormat wav;
    wav.channels = 2;
    wav.sampleRate = 44100;
    wav.bitsPerSample = 16;
    const RPtr<RDescription> samples(wav.createDescription());
    const Bytes black(picture.frameBytes(), 0);
    const std::vector<RPtr<RFrame>> frame{RPtr<RFrame>(RVideoFrame::createWithData(
        0, 0.0, 0.04, cmcomponents::kPlanar444, static_cast<unsigned int>(black.size()),
        const_cast<unsigned char*>(black.data()), 0, ZR::ConstructionCopy))};
    const struct {
        const char* name;
        const EncoderSpec& spec;
        const char* profile;
        const RDescription* description;
        int result;
        const char* says;
    } cases[] = {
        {"baseline 4:4:4", cmcomponents::h264EncoderSpec(), "baseline", pictures.addr(),
         kResultComponentConfigureFailed, "cannot open libx264"},
        {"samples to h264", cmcomponents::h264EncoderSpec(), nullptr, samples.addr(),
         kResultNoValidTracks, "not planar pictures"},
        {"pictures to aac", cmcomponents::aacEncoderSpec(), nullptr, pictures.addr(),
         kResultNoValidTracks, "not 8-, 16- or 24-bit lpcm"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RPtr<RAvEncoder> encoder(new RAvEncoder(c.spec));
        if (c.profile) {
            ASSERT_EQ(encoder->configure(*cmtest::settingsOf(std::string("profile=") + c.profile)),
                      kResultOK);
        }
        const cmtest::Filtered out = cmtest::filterFrames(*encoder, nullptr, c.description, frame);
        EXPECT_TRUE(out.frames.empty());
        EXPECT_TRUE(cmtest::endedWith(encoder->getStatus(), c.result, c.says));
    }
}

// A real transcode: an MP4 of H.264 and AAC goes through a decoder and an encoder per track
// into a WebM of VP9 and Opus, every component on its own thread with small queues. Both
// tracks come out whole; the sound starts where it starts in ffmpeg's own transcode of the
// file with the same encoders (the encoder's delay written as the container keeps it), and
// the picture with it, at 0, where ffmpeg's muxer moves it late by that delay.
TEST(AvEncoderTest, TranscodesBothTracksOfAFileAsFfmpegDoes) {
    cmtest::TempDir dir;
    const std::string input = dir.file("in.mp4");
    ASSERT_TRUE(
        cmtest::makeWithFfmpeg("-f lavfi -i testsrc=s=64x48:r=25:d=1 -f lavfi "
                               "-i sine=f=440:d=1 -c:v libx264 -preset ultrafast -c:a aac",
                               input));
    const std::string reference = dir.file("ffmpeg.webm");
    ASSERT_TRUE(cmtest::makeWithFfmpeg("-i " + cmtest::shellQuote(input) +
                                           " -c:v libvpx-vp9 -deadline realtime -cpu-used 8 "
                                           "-c:a libopus",
                                       reference));
    RPtr<cmcomponents::RAvImporter> importer(new cmcomponents::RAvImporter);
    RPtr<cmcomponents::RAvDecoder> videoDecoder(new cmcomponents::RAvDecoder);
    RPtr<cmcomponents::RAvDecoder> audioDecoder(new cmcomponents::RAvDecoder);
    RPtr<RAvEncoder> vp9(new RAvEncoder(cmcomponents::vp9EncoderSpec()));
    RPtr<RAvEncoder> opus(new RAvEncoder(cmcomponents::opusEncoderSpec()));
    RPtr<cmcomponents::RAvExporter> exporter(new cmcomponents::RAvExporter);
    ASSERT_EQ(vp9->configure(*cmtest::settingsOf("preset=realtime,speed=8")), kResultOK);
    cmtest::Graph graph{importer.addr(),
                        {{videoDecoder.addr(), vp9.addr()}, {audioDecoder.addr(), opus.addr()}},
                        exporter.addr()};
    const std::string output = dir.file("out.webm");
    ASSERT_EQ(cmtest::runGraph(graph, input, output), kResultOK);
    for (RComponent* component :
         std::vector<RComponent*>{importer.addr(), videoDecoder.addr(), audioDecoder.addr(),
                                  vp9.addr(), opus.addr(), exporter.addr()}) {
        EXPECT_EQ(component->getStatus().mExtra, 0u) << component->getStatus().mInfo.c_str();
    }
    auto ours = cmtest::probeStreams(output, true);
    auto theirs = cmtest::probeStreams(reference, true);
    ASSERT_EQ(ours.size(), 2u);
    ASSERT_EQ(theirs.size(), 2u);
    const char* const codecs[] = {"vp9", "opus"};
    for (std::size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(codecs[i]);
        EXPECT_EQ(ours[i]["codec_name"], codecs[i]);
        EXPECT_EQ(ours[i]["nb_read_frames"], theirs[i]["nb_read_frames"]);
        EXPECT_NEAR(cmtest::probedNumber(ours[i], "start_time"),
                    i == 0 ? 0.0 : cmtest::probedNumber(theirs[i], "start_time"), 0.001);
    }
    EXPECT_NEAR(cmtest::probeDuration(output), cmtest::probeDuration(reference), 0.04);
}
