#include "common/WavFormat.h"

#include "common/StreamIO.h"

#include <cm/CMComponentStatus.h>

#include <cmath>
#include <cstring>

using ZR::CM::kResultInputMetaDataParseFailed;
using ZR::CM::kResultNoValidTracks;
using ZR::CM::kResultOK;

namespace cmcomponents {

namespace {

constexpr unsigned int kFormatPCM = 1;
constexpr unsigned int kFormatExtensible = 0xFFFE;
constexpr std::size_t kPlainFmtSize = 16;
constexpr std::size_t kExtensibleFmtSize = 40;
// The subformat GUID of PCM in an extensible header, as stored: its first two bytes are
// the format tag, the rest is common to every tag.
constexpr unsigned char kSubformatTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                              0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

unsigned int le16(const unsigned char* p) {
    return p[0] | (p[1] << 8);
}

unsigned int le32(const unsigned char* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<unsigned int>(p[3]) << 24);
}

void put16(std::vector<unsigned char>& out, unsigned int v) {
    out.push_back(static_cast<unsigned char>(v));
    out.push_back(static_cast<unsigned char>(v >> 8));
}

void put32(std::vector<unsigned char>& out, unsigned int v) {
    put16(out, v & 0xFFFF);
    put16(out, v >> 16);
}

void putTag(std::vector<unsigned char>& out, const char* tag) {
    out.insert(out.end(), tag, tag + 4);
}

int popcount(unsigned int v) {
    return __builtin_popcount(v);
}

// Parses the body of a "fmt " chunk (at most kExtensibleFmtSize bytes of it).
int parseFmt(const unsigned char* p, std::size_t size, WavFormat& format, std::string& why) {
    if (size < kPlainFmtSize) {
        why = "fmt chunk of " + std::to_string(size) + " bytes";
        return kResultInputMetaDataParseFailed;
    }
    unsigned int tag = le16(p);
    const unsigned int channels = le16(p + 2);
    const unsigned int rate = le32(p + 4);
    const unsigned int blockAlign = le16(p + 12);
    const unsigned int bits = le16(p + 14);
    unsigned int mask = 0;
    if (tag == kFormatExtensible) {
        if (size < kExtensibleFmtSize || le16(p + 16) < 22) {
            why = "extensible fmt chunk without its extension";
            return kResultInputMetaDataParseFailed;
        }
        const unsigned int validBits = le16(p + 18);
        if (validBits > bits) {
            why = "more valid bits than bits per sample";
            return kResultInputMetaDataParseFailed;
        }
        mask = le32(p + 20);
        if (std::memcmp(p + 26, kSubformatTail, sizeof kSubformatTail) != 0) {
            why = "extensible fmt chunk with an unknown subformat";
            return kResultNoValidTracks;
        }
        tag = le16(p + 24);
    }
    if (tag != kFormatPCM) {
        why = "format tag " + std::to_string(tag) + " is not linear PCM";
        return kResultNoValidTracks;
    }
    if (channels == 0 || rate == 0 || bits == 0) {
        why = "no channels, rate or bits per sample";
        return kResultInputMetaDataParseFailed;
    }
    if (channels > WavFormat::kMaxChannels || (bits != 8 && bits != 16 && bits != 24)) {
        why = std::to_string(channels) + " channels of " + std::to_string(bits) + " bits";
        return kResultNoValidTracks;
    }
    if (blockAlign != channels * bits / 8) {
        why = "block size " + std::to_string(blockAlign) + " does not match the channels";
        return kResultInputMetaDataParseFailed;
    }
    // The header stores rate times block size in 32 bits: a larger one is no WAV file, and
    // could not be written back.
    if (static_cast<unsigned long long>(rate) * blockAlign > 0xFFFFFFFFull) {
        why = "rate " + std::to_string(rate) + " too high for " + std::to_string(channels) +
              " channels of " + std::to_string(bits) + " bits";
        return kResultInputMetaDataParseFailed;
    }
    format.channels = channels;
    format.sampleRate = rate;
    format.bitsPerSample = bits;
    // A mask that names another number of speakers than there are channels says nothing.
    format.channelMask = popcount(mask) == static_cast<int>(channels) ? mask : 0;
    return kResultOK;
}

}  // namespace

ZR::CM::RAudioDescription* WavFormat::createDescription() const {
    auto* description = new ZR::CM::RAudioDescription;
    description->mChannels = channels;
    description->mAudioInt = channelMask;
    description->mBytesPerSample = bytesPerSample();
    description->mSampleRate = sampleRate;
    return description;
}

bool WavFormat::setFromDescription(const ZR::CM::RDescription& description) {
    if (description.type() != ZR::fourcc("audi")) {
        return false;
    }
    const auto& audio = static_cast<const ZR::CM::RAudioDescription&>(description);
    const double rate = std::round(audio.mSampleRate);
    if (audio.mChannels == 0 || audio.mChannels > kMaxChannels || audio.mBytesPerSample == 0 ||
        audio.mBytesPerSample > 3 ||
        !(rate >= 1.0 && rate * audio.mChannels * audio.mBytesPerSample <= 4294967295.0)) {
        return false;
    }
    channels = audio.mChannels;
    bitsPerSample = audio.mBytesPerSample * 8;
    sampleRate = static_cast<unsigned int>(rate);
    channelMask = popcount(audio.mAudioInt) == static_cast<int>(channels) ? audio.mAudioInt : 0;
    dataBytes = 0;
    return true;
}

int readWavHeader(CByteReader& reader, WavFormat& format, std::string& why) {
    unsigned char riff[12];
    if (reader.read(riff, sizeof riff) != sizeof riff) {
        why = "the RIFF header ends early";
        return kResultInputMetaDataParseFailed;
    }
    if (std::memcmp(riff, "RIFF", 4) != 0 || std::memcmp(riff + 8, "WAVE", 4) != 0) {
        why = "not a RIFF/WAVE file";
        return kResultInputMetaDataParseFailed;
    }
    bool haveFmt = false;
    for (;;) {
        unsigned char chunk[8];
        if (reader.read(chunk, sizeof chunk) != sizeof chunk) {
            why = haveFmt ? "no data chunk" : "no fmt chunk";
            return kResultInputMetaDataParseFailed;
        }
        const unsigned long long size = le32(chunk + 4);
        const unsigned long long padded = size + (size & 1);
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            if (haveFmt) {
                why = "a second fmt chunk";
                return kResultInputMetaDataParseFailed;
            }
            unsigned char body[kExtensibleFmtSize];
            const std::size_t want =
                size < sizeof body ? static_cast<std::size_t>(size) : sizeof body;
            if (reader.read(body, want) != want) {
                why = "the fmt chunk ends early";
                return kResultInputMetaDataParseFailed;
            }
            const int result = parseFmt(body, static_cast<std::size_t>(size), format, why);
            if (result != kResultOK) {
                return result;
            }
            haveFmt = true;
            if (!reader.skip(padded - want)) {
                why = "cannot skip the rest of the fmt chunk";
                return kResultInputMetaDataParseFailed;
            }
            continue;
        }
        if (std::memcmp(chunk, "data", 4) == 0) {
            if (!haveFmt) {
                why = "data chunk before the fmt chunk";
                return kResultInputMetaDataParseFailed;
            }
            unsigned long long bytes = size;
            const long long left = reader.remaining();
            if (left >= 0 && static_cast<unsigned long long>(left) < bytes) {
                bytes = static_cast<unsigned long long>(left);  // a file cut short
            }
            format.dataBytes = bytes - bytes % format.blockAlign();
            return kResultOK;
        }
        if (!reader.skip(padded)) {
            why = "cannot skip a chunk";
            return kResultInputMetaDataParseFailed;
        }
    }
}

std::vector<unsigned char> makeWavHeader(const WavFormat& format) {
    const bool extensible = format.needsExtensibleHeader();
    const unsigned int fmtSize = extensible ? kExtensibleFmtSize : kPlainFmtSize;
    const unsigned long long pad = format.dataBytes & 1;
    std::vector<unsigned char> out;
    out.reserve(12 + 8 + fmtSize + 8);
    putTag(out, "RIFF");
    put32(out, static_cast<unsigned int>(4 + 8 + fmtSize + 8 + format.dataBytes + pad));
    putTag(out, "WAVE");
    putTag(out, "fmt ");
    put32(out, fmtSize);
    put16(out, extensible ? kFormatExtensible : kFormatPCM);
    put16(out, format.channels);
    put32(out, format.sampleRate);
    put32(out, format.sampleRate * format.blockAlign());
    put16(out, format.blockAlign());
    put16(out, format.bitsPerSample);
    if (extensible) {
        put16(out, 22);
        put16(out, format.bitsPerSample);
        put32(out, format.channelMask);
        put16(out, kFormatPCM);
        out.insert(out.end(), kSubformatTail, kSubformatTail + sizeof kSubformatTail);
    }
    putTag(out, "data");
    put32(out, static_cast<unsigned int>(format.dataBytes));
    return out;
}

}  // namespace cmcomponents
