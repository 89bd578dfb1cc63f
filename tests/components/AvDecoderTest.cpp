#include "av.decoder/AvDecoder.h"

#include <gtest/gtest.h>

#include "av.importer/AvImporter.h"
#include "common/CodedMedia.h"
#include "wav.exporter/WavExporter.h"
#include "y4m.exporter/Y4MExporter.h"

#include <cm/CMComponentStatus.h>

#include "support/MediaPipeline.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <cmath>
#include <string>
#include <vector>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::RAvDecoder;
using cmcomponents::RAvImporter;
using Bytes = std::vector<unsigned char>;

namespace {

// The peak signal-to-noise ratio of b against a, 8-bit samples (16-bit when wide); the
// sizes must agree. Infinity for equal data.
double psnr(const Bytes& a, const Bytes& b, bool wide) {
    const std::size_t step = wide ? 2 : 1;
    double sum = 0.0;
    for (std::size_t i = 0; i + step <= a.size(); i += step) {
        const double x = wide ? static_cast<std::int16_t>(a[i] | a[i + 1] << 8) : a[i];
        const double y = wide ? static_cast<std::int16_t>(b[i] | b[i + 1] << 8) : b[i];
        sum += (x - y) * (x - y);
    }
    const double peak = wide ? 32767.0 : 255.0;
    const double mse = sum / static_cast<double>(a.size() / step);
    return mse == 0.0 ? INFINITY : 10.0 * std::log10(peak * peak / mse);
}

}  // namespace

// Coded files go through importer, decoder and the Y4M or WAV exporter; what comes out is
// what ffmpeg decodes from the same file: the same pictures (in the layout asked for) and
// the same samples, priming and padding dropped as ffmpeg drops them.
TEST(AvDecoderTest, DecodesWhatFfmpegDecodes) {
    ASSERT_TRUE(cmtest::haveTool("ffmpeg")) << "ffmpeg is needed: scripts/install-deps.sh";
    const std::string picture = "-f lavfi -i testsrc=s=64x48:r=25:d=0.4 ";
    const std::string tone = "-f lavfi -i sine=f=440:d=0.5 ";
    const struct {
        const char* file;
        std::string arguments;
        const char* layout;     // the decoder's "format"; null for audio
        const char* reference;  // ffmpeg's raw output of the source
        double minimumPsnr;     // infinity: identical
    } cases[] = {
        {"h264.mp4", picture + "-c:v libx264 -preset ultrafast -bf 2", "I420",
         "rawvideo -pix_fmt yuv420p", INFINITY},
        {"vp9.webm", picture + "-c:v libvpx-vp9 -deadline realtime -pix_fmt yuv444p", "Y444",
         "rawvideo -pix_fmt yuv444p", INFINITY},
        {"h265.mkv",
         picture + "-c:v libx265 -preset ultrafast -pix_fmt yuv422p "
                   "-x265-params log-level=error",
         "Y42B", "rawvideo -pix_fmt yuv422p", INFINITY},
        {"422to420.mkv", picture + "-c:v libx264 -preset ultrafast -pix_fmt yuv422p", "I420",
         "rawvideo -pix_fmt yuv420p", 40.0},
        {"tone.flac", tone + "-c:a flac", nullptr, "s16le", INFINITY},
        {"tone.m4a", tone + "-c:a aac", nullptr, "s16le", 90.0},
        {"tone.ogg", tone + "-c:a libopus", nullptr, "s16le", 90.0},
        {"tone.mp3", tone + "-c:a libmp3lame", nullptr, "s16le", 90.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        cmtest::TempDir dir;
        const std::string source = dir.file(c.file);
        ASSERT_TRUE(cmtest::makeWithFfmpeg(c.arguments, source));
        const std::string output = dir.file(c.layout ? "out.y4m" : "out.wav");

        RPtr<RAvImporter> importer(new RAvImporter);
        RPtr<RAvDecoder> decoder(new RAvDecoder);
        RPtr<RExporter> exporter(c.layout ? static_cast<RExporter*>(new cmcomponents::RY4MExporter)
                                          : new cmcomponents::RWavExporter);
        RPtr<RComponentConfiguration> settings(new RComponentConfiguration);
        if (c.layout) {
            settings->setString("format", c.layout);
        }
        cmtest::Pipeline p{importer.addr(), decoder.addr(), settings.addr(), exporter.addr()};
        ASSERT_EQ(cmtest::runPipeline(p, source, output), kResultOK);
        EXPECT_EQ(decoder->getStatus().mExtra, 0u) << decoder->getStatus().mInfo.c_str();
        EXPECT_EQ(exporter->getStatus().mExtra, 0u) << exporter->getStatus().mInfo.c_str();

        const Bytes expected = cmtest::decodeWithFfmpeg(source, c.reference);
        const Bytes decoded = cmtest::decodeWithFfmpeg(output, c.layout ? "rawvideo" : "s16le");
        ASSERT_FALSE(expected.empty());
        ASSERT_EQ(decoded.size(), expected.size());
        EXPECT_GE(psnr(expected, decoded, !c.layout), c.minimumPsnr);
    }
}

// Coded input the decoder cannot take fails the run with a result that says so, and the
// output still ends (the exporter downstream finishes instead of waiting).
TEST(AvDecoderTest, RefusesWhatItCannotDecode) {
    cmcomponents::CodedFormat unknown;
    unknown.media = ZR::fourcc("vide");
    unknown.codec = ZR::fourcc("xyz1");
    unknown.width = 64;
    unknown.height = 48;
    const RPtr<RDescription> coded(unknown.createDescription());
    const struct {
        const char* name;
        const RDescription* description;
        int result;
        const char* says;
    } cases[] = {
        {"unknown codec", coded.addr(), kResultNoDecoder, "no decoder for \"xyz1\""},
        {"no description", nullptr, kResultNoValidTracks, "without a description"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        cmcomponents::CodedFrameTimes times;
        const unsigned char bytes[16] = {};
        std::vector<RPtr<RFrame>> frames{RPtr<RFrame>(cmcomponents::createCodedFrame(
            unknown.media, unknown.codec, bytes, sizeof bytes, times))};
        RPtr<RAvDecoder> decoder(new RAvDecoder);
        const cmtest::Filtered out = cmtest::filterFrames(*decoder, nullptr, c.description, frames);
        EXPECT_TRUE(out.frames.empty());
        EXPECT_TRUE(cmtest::endedWith(decoder->getStatus(), c.result, c.says));
    }
}
