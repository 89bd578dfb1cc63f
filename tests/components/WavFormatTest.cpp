#include "common/WavFormat.h"

#include <gtest/gtest.h>

#include "common/StreamIO.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMStream.h>

#include <cstring>
#include <string>
#include <vector>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::CByteReader;
using cmcomponents::WavFormat;

namespace {

using Bytes = std::vector<unsigned char>;

RPtr<RStream> streamWith(const Bytes& bytes) {
    RPtr<RStream> stream = RStream::getTempStream();
    if (!bytes.empty()) {
        stream->write(const_cast<unsigned char*>(bytes.data()),
                      static_cast<long long>(bytes.size()));
    }
    stream->lseek(0, SEEK_SET);
    return stream;
}

int parse(const Bytes& bytes, WavFormat& format) {
    CByteReader reader(streamWith(bytes));
    std::string why;
    const int result = cmcomponents::readWavHeader(reader, format, why);
    EXPECT_EQ(result == kResultOK, why.empty()) << why;
    return result;
}

// value as `size` little-endian bytes.
Bytes le(unsigned int value, int size) {
    Bytes b;
    for (int i = 0; i < size; ++i) {
        b.push_back(static_cast<unsigned char>(value >> (8 * i)));
    }
    return b;
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A chunk: its id, its size and its body, with a pad byte after an odd body.
Bytes chunk(const char* id, const Bytes& body) {
    return Bytes(id, id + 4) + le(static_cast<unsigned int>(body.size()), 4) + body +
           Bytes(body.size() % 2, 0);
}

// The body of a plain fmt chunk.
Bytes fmtBody(unsigned int tag, unsigned int channels, unsigned int rate, unsigned int bits,
              unsigned int blockAlign) {
    return le(tag, 2) + le(channels, 2) + le(rate, 4) + le(rate * blockAlign, 4) +
           le(blockAlign, 2) + le(bits, 2);
}

// An extensible fmt body; subformatTag 1 is PCM.
Bytes extensibleBody(unsigned int channels, unsigned int bits, unsigned int validBits,
                     unsigned int mask, unsigned int subformatTag, unsigned int cbSize = 22) {
    return fmtBody(0xFFFE, channels, 48000, bits, channels * bits / 8) + le(cbSize, 2) +
           le(validBits, 2) + le(mask, 4) + le(subformatTag, 2) +
           Bytes{0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};
}

// RIFF/WAVE around the given chunks.
Bytes riff(const Bytes& chunks) {
    return Bytes{'R', 'I', 'F', 'F'} + le(static_cast<unsigned int>(4 + chunks.size()), 4) +
           Bytes{'W', 'A', 'V', 'E'} + chunks;
}

Bytes wavWith(const Bytes& fmt, const Bytes& data) {
    return riff(chunk("fmt ", fmt) + chunk("data", data));
}

}  // namespace

// Headers made for every width and channel count read back as the same format; the
// extensible form is chosen exactly when the format asks for it.
TEST(WavFormatTest, HeadersRoundTripForEveryWidthAndChannelCount) {
    for (unsigned int bits : {8u, 16u, 24u}) {
        for (unsigned int channels = 1; channels <= WavFormat::kMaxChannels; ++channels) {
            for (unsigned int mask : {0u, (1u << channels) - 1}) {
                WavFormat written;
                written.channels = channels;
                written.sampleRate = 44100 + channels;
                written.bitsPerSample = bits;
                written.channelMask = mask;
                written.dataBytes = 10ull * written.blockAlign();
                Bytes file = cmcomponents::makeWavHeader(written);
                const bool extensible = channels > 2 || bits > 16 || mask != 0;
                EXPECT_EQ(file.size(), extensible ? 68u : 44u);
                file.resize(file.size() + written.dataBytes, 0x5A);

                WavFormat read;
                ASSERT_EQ(parse(file, read), kResultOK) << bits << " bits, " << channels;
                EXPECT_EQ(read.channels, channels);
                EXPECT_EQ(read.sampleRate, written.sampleRate);
                EXPECT_EQ(read.bitsPerSample, bits);
                EXPECT_EQ(read.channelMask, mask);
                EXPECT_EQ(read.dataBytes, written.dataBytes);
                EXPECT_EQ(read.sampleFrames(), 10u);
            }
        }
    }
}

TEST(WavFormatTest, MalformedAndUnsupportedHeadersGetTheirResults) {
    const Bytes samples(16, 0);
    const Bytes pcm16 = fmtBody(1, 2, 48000, 16, 4);
    Bytes notWave = wavWith(pcm16, samples);
    std::memcpy(&notWave[8], "AVI ", 4);
    Bytes notRiff = wavWith(pcm16, samples);
    std::memcpy(&notRiff[0], "RIFX", 4);

    const int kBad = kResultInputMetaDataParseFailed, kUnsupported = kResultNoValidTracks;
    const struct {
        const char* what;
        Bytes file;
        int result;
    } cases[] = {
        {"not RIFF", notRiff, kBad},
        {"not WAVE", notWave, kBad},
        {"data before fmt", riff(chunk("data", samples) + chunk("fmt ", pcm16)), kBad},
        {"two fmt chunks",
         riff(chunk("fmt ", pcm16) + chunk("fmt ", pcm16) + chunk("data", samples)), kBad},
        {"fmt of 14 bytes", wavWith(Bytes(pcm16.begin(), pcm16.begin() + 14), samples), kBad},
        {"block size", wavWith(fmtBody(1, 2, 48000, 16, 2), samples), kBad},
        {"no channels", wavWith(fmtBody(1, 0, 48000, 16, 0), samples), kBad},
        {"no rate", wavWith(fmtBody(1, 2, 0, 16, 4), samples), kBad},
        {"no extension", wavWith(extensibleBody(2, 16, 16, 3, 1, 0), samples), kBad},
        {"valid bits", wavWith(extensibleBody(2, 16, 20, 3, 1), samples), kBad},
        {"float", wavWith(fmtBody(3, 2, 48000, 32, 8), samples), kUnsupported},
        {"32 bits", wavWith(fmtBody(1, 2, 48000, 32, 8), samples), kUnsupported},
        {"12 bits", wavWith(fmtBody(1, 1, 48000, 12, 1), samples), kUnsupported},
        {"9 channels", wavWith(fmtBody(1, 9, 48000, 16, 18), samples), kUnsupported},
        {"float subformat", wavWith(extensibleBody(2, 32, 32, 3, 3), samples), kUnsupported},
        {"no data chunk", riff(chunk("fmt ", pcm16)), kBad},
        {"empty", Bytes(), kBad},
    };
    for (const auto& c : cases) {
        WavFormat format;
        EXPECT_EQ(parse(c.file, format), c.result) << c.what;
    }
}

// A header cut anywhere before its data chunk is rejected, never read past; cut inside
// the samples it still opens, with the samples that are there.
TEST(WavFormatTest, EveryTruncationIsRejectedOrCutToWholeSampleFrames) {
    const Bytes file = riff(chunk("LIST", Bytes(7, 'x')) +  // odd: followed by a pad byte
                            chunk("fmt ", extensibleBody(6, 24, 24, 0x3F, 1)) +
                            chunk("data", Bytes(18 * 5, 0x11)));
    const std::size_t dataStart = file.size() - 18 * 5;
    for (std::size_t cut = 0; cut < dataStart; ++cut) {
        WavFormat format;
        EXPECT_EQ(parse(Bytes(file.begin(), file.begin() + cut), format),
                  kResultInputMetaDataParseFailed)
            << "cut at " << cut;
    }
    for (std::size_t cut = dataStart; cut <= file.size(); ++cut) {
        WavFormat format;
        ASSERT_EQ(parse(Bytes(file.begin(), file.begin() + cut), format), kResultOK);
        EXPECT_EQ(format.dataBytes, (cut - dataStart) / 18 * 18);
        EXPECT_EQ(format.channelMask, 0x3Fu);
    }
}
