#include "gain.filter/GainFilter.h"

#include <gtest/gtest.h>

#include "common/WavFormat.h"
#include "wav.exporter/WavExporter.h"
#include "wav.importer/WavImporter.h"

#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <cmath>
#include <string>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::RGainFilter;
using cmtest::Bytes;

namespace {

// The gain applied to a tone as the filter's definition says, computed here on its own:
// each sample times 10^(dB / 20), rounded half away from zero, clipped to its width.
Bytes expectedGain(const Bytes& in, unsigned int bits, double db) {
    const double factor = std::pow(10.0, db / 20.0);
    const long top = (1L << (bits - 1)) - 1, bottom = -(1L << (bits - 1));
    const std::size_t count = in.size() / (bits / 8);
    Bytes out;
    for (std::size_t i = 0; i < count; ++i) {
        const double exact = static_cast<double>(cmtest::sampleAt(in, bits, i)) * factor;
        long v = static_cast<long>(exact < 0 ? std::ceil(exact - 0.5) : std::floor(exact + 0.5));
        v = std::max(bottom, std::min(top, v));
        if (bits == 8) {
            v += 128;
        }
        for (unsigned int b = 0; b < bits / 8; ++b) {
            out.push_back(static_cast<unsigned char>(v >> (8 * b)));
        }
    }
    return out;
}

const char* rawFormatFor(unsigned int bits) {
    return bits == 8 ? "u8" : bits == 16 ? "s16le" : "s24le";
}

}  // namespace

TEST(GainFilterTest, SamplesAreScaledRoundedAndClippedInEveryWidth) {
    // 16 bits: 1001 and -1001 halve to +-500.5, which round away from zero; 3 to 1.5 -> 2.
    const Bytes in16{0xE9, 0x03, 0x17, 0xFC, 0x03, 0x00, 0x80, 0x3E, 0xD8, 0xDC, 0x7F};
    Bytes out(in16.size());
    cmcomponents::applyGain(in16.data(), out.data(), in16.size(), 2, 0.5);
    EXPECT_EQ(cmtest::sampleAt(out, 16, 0), 501);
    EXPECT_EQ(cmtest::sampleAt(out, 16, 1), -501);
    EXPECT_EQ(cmtest::sampleAt(out, 16, 2), 2);
    EXPECT_EQ(out.back(), 0x7F);  // the odd byte at the end is copied as it is
    cmcomponents::applyGain(in16.data(), out.data(), in16.size(), 2, 4.0);
    EXPECT_EQ(cmtest::sampleAt(out, 16, 3), 32767);   // 16000 * 4
    EXPECT_EQ(cmtest::sampleAt(out, 16, 4), -32768);  // -9000 * 4

    // 8 bits are unsigned around 128: 200 is +72, doubled past the top.
    const Bytes in8{200, 128, 0, 100};
    out.assign(in8.size(), 0);
    cmcomponents::applyGain(in8.data(), out.data(), in8.size(), 1, 2.0);
    EXPECT_EQ(out, (Bytes{255, 128, 0, 72}));

    // 24 bits keep their sign: -1 halves to -0.5, which rounds to -1.
    Bytes in24{0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x40, 0x00, 0x00, 0xC0};
    cmcomponents::applyGain(in24.data(), in24.data(), in24.size(), 3, 0.5);
    EXPECT_EQ(cmtest::sampleAt(in24, 24, 0), -1);
    EXPECT_EQ(cmtest::sampleAt(in24, 24, 1), 0x200000);
    EXPECT_EQ(cmtest::sampleAt(in24, 24, 2), -0x200000);
}

// A tone written by sox goes importer -> gain -> exporter on four threads; every sample
// that comes out is the one scaled, rounded and clipped as above, so at 0 dB the output is
// the input, at -6 dB the peak halves and at +12 dB a loud tone clips. The gain comes as a
// configuration passed to the filter's start(), as a host hands it over.
TEST(GainFilterTest, PipelineAppliesTheGainTheToolsMeasure) {
    ASSERT_TRUE(cmtest::haveTool("sox") && cmtest::haveTool("ffmpeg"))
        << "sox and ffmpeg are needed: scripts/install-deps.sh";
    const struct {
        unsigned int bits, channels;
        double db;
    } cases[] = {{16, 2, 0.0}, {16, 2, -6.0}, {24, 1, -6.0}, {8, 2, -6.0}, {16, 1, 12.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.bits) + " bits at " + std::to_string(c.db) + " dB");
        cmtest::TempDir dir;
        const Bytes tone = cmtest::makeTone(c.bits, c.channels, 3000, 0.9);
        ASSERT_TRUE(cmtest::writeWavWithSox(dir.file("in.wav"), tone, 48000, c.bits, c.channels));

        RPtr<cmcomponents::RWavImporter> importer(new cmcomponents::RWavImporter);
        RPtr<RGainFilter> gain(new RGainFilter);
        RPtr<cmcomponents::RWavExporter> exporter(new cmcomponents::RWavExporter);
        RPtr<RFilterConfiguration> configuration(new RFilterConfiguration);
        configuration->setFloat("gain-db", static_cast<float>(c.db));
        cmtest::Pipeline p{importer.addr(), gain.addr(), configuration.addr(), exporter.addr()};
        p.importerConfiguration.setInt("samples-per-frame", 333);
        ASSERT_EQ(cmtest::runPipeline(p, dir.file("in.wav"), dir.file("out.wav")), kResultOK);
        EXPECT_EQ(gain->getStatus().mExtra, 0u) << gain->getStatus().mInfo.c_str();
        EXPECT_EQ(gain->getStatus().mFrames, 10);  // 3000 / 333, rounded up
        EXPECT_EQ(exporter->getStatus().mExtra, 0u) << exporter->getStatus().mInfo.c_str();

        EXPECT_EQ(cmtest::decodeWithFfmpeg(dir.file("out.wav"), rawFormatFor(c.bits)),
                  expectedGain(tone, c.bits, c.db));
    }
}
