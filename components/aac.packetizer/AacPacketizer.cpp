#include "aac.packetizer/AacPacketizer.h"

#include <algorithm>
#include <cstdio>

using ZR::CM::RFrame;
using ZR::CM::RRTPDescription;

namespace cmcomponents {

namespace {

// The largest unit the 13 bits of an AU header's size can say.
constexpr std::size_t kMaxUnit = (1u << 13) - 1;

// What an ADTS header (ISO/IEC 13818-7) says.
struct AdtsHeader {
    std::size_t headerSize;   // 7, or 9 with a CRC
    std::size_t frameLength;  // header included
    unsigned int profile;     // the audio object type less one
    unsigned int rateIndex;
    unsigned int channels;
    unsigned int extraBlocks;  // raw data blocks beyond the first
};

bool readAdts(const unsigned char* data, std::size_t size, AdtsHeader& header) {
    if (size < 7 || data[0] != 0xFF || (data[1] & 0xF6) != 0xF0) {
        return false;
    }
    header.headerSize = (data[1] & 1) ? 7 : 9;
    header.profile = data[2] >> 6;
    header.rateIndex = (data[2] >> 2) & 0xF;
    header.channels = (data[2] & 1) << 2 | data[3] >> 6;
    header.frameLength = (data[3] & 3u) << 11 | data[4] << 3 | data[5] >> 5;
    header.extraBlocks = data[6] & 3;
    return header.frameLength >= header.headerSize && header.frameLength <= size;
}

std::string hex(const std::vector<unsigned char>& bytes) {
    std::string text;
    for (const unsigned char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

}  // namespace

int RAacPacketizer::describe(const CodedFormat& format, const RFrame* first,
                             RRTPDescription& description, std::string& why) {
    std::vector<unsigned char> config = format.privateData;
    mAdts = config.empty();
    AdtsHeader adts{};
    if (mAdts) {
        if (!first || !readAdts(first->getData(), first->getSize(), adts)) {
            why = "AAC without an AudioSpecificConfig must come in ADTS frames";
            return ZR::CM::kResultInputMetaDataParseFailed;
        }
        const unsigned int objectType = adts.profile + 1;
        config = {static_cast<unsigned char>(objectType << 3 | adts.rateIndex >> 1),
                  static_cast<unsigned char>((adts.rateIndex & 1) << 7 | adts.channels << 3)};
    }
    if (format.sampleRate == 0) {
        why = "AAC of unknown sample rate";
        return ZR::CM::kResultNoPacketizer;
    }
    description.mEncodingName = "MPEG4-GENERIC";
    description.mClockRate = format.sampleRate;
    description.mEncodingParameters = format.channels;
    description.addAttribute(("a=fmtp:" + std::to_string(description.mPayloadType) +
                              " streamtype=5;profile-level-id=1;mode=AAC-hbr;sizelength=13;"
                              "indexlength=3;indexdeltalength=3;config=" +
                              hex(config))
                                 .c_str());
    return 0;
}

int RAacPacketizer::layOut(const RFrame& frame, CPayloadLayout& layout, std::string& why) {
    const unsigned char* unit = frame.getData();
    std::size_t size = frame.getSize();
    if (mAdts) {
        AdtsHeader adts{};
        if (!readAdts(unit, size, adts) || adts.extraBlocks != 0) {
            why = "not an ADTS frame of one raw data block";
            return ZR::CM::kResultInputMetaDataParseFailed;
        }
        unit += adts.headerSize;
        size = adts.frameLength - adts.headerSize;
    }
    if (size > kMaxUnit) {
        why = "an access unit of " + std::to_string(size) + " bytes is more than an AU header " +
              "can say";
        return ZR::CM::kResultNoPacketizer;
    }
    const std::size_t piece = maxPayload() - 4;
    for (std::size_t at = 0; at < size; at += piece) {
        layout.append16(16);  // AU-headers-length in bits: one header
        layout.append16(static_cast<unsigned int>(size << 3));
        layout.append(unit + at, std::min(piece, size - at));
        layout.endPacket();
    }
    layout.markLast();
    return 0;
}

}  // namespace cmcomponents
