#include "h264.packetizer/H264Packetizer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

using ZR::CM::RFrame;
using ZR::CM::RRTPDescription;

namespace cmcomponents {

namespace {

using ParameterSets = std::vector<NalUnit>;

// The sets of an avcC record (ISO/IEC 14496-15), and its length prefix size; false when
// the record is cut short.
bool readAvcC(const std::vector<unsigned char>& record, unsigned int& lengthSize,
              ParameterSets& sequenceSets, ParameterSets& pictureSets) {
    const std::size_t size = record.size();
    if (size < 6) {
        return false;
    }
    lengthSize = (record[4] & 3) + 1;
    std::size_t at = 6;
    const auto readSets = [&](unsigned int count, ParameterSets& into) {
        for (unsigned int i = 0; i < count; ++i) {
            if (size - at < 2) {
                return false;
            }
            const std::size_t length = record[at] << 8 | record[at + 1];
            at += 2;
            if (size - at < length) {
                return false;
            }
            if (length > 0) {
                into.emplace_back(record.begin() + at, record.begin() + at + length);
            }
            at += length;
        }
        return true;
    };
    if (!readSets(record[5] & 0x1F, sequenceSets) || at >= size) {
        return false;
    }
    const unsigned int pictureCount = record[at++];
    return readSets(pictureCount, pictureSets);
}

}  // namespace

int RH264Packetizer::describe(const CodedFormat& format, const RFrame* first,
                              RRTPDescription& description, std::string& why) {
    mSequenceSets.clear();
    mPictureSets.clear();
    mLengthSize = 0;
    const std::vector<unsigned char>& privateData = format.privateData;
    if (!privateData.empty() && privateData[0] == 1) {
        if (!readAvcC(privateData, mLengthSize, mSequenceSets, mPictureSets)) {
            why = "the avcC record of the private data is cut short";
            return ZR::CM::kResultInputMetaDataParseFailed;
        }
    } else if (split(privateData.data(), privateData.size())) {
        keepParameterSets();
    }
    if (first && split(first->getData(), first->getSize())) {
        keepParameterSets();
    }
    description.mEncodingName = "H264";
    description.mClockRate = 90000;
    std::string fmtp =
        "a=fmtp:" + std::to_string(description.mPayloadType) + " packetization-mode=1";
    if (!mSequenceSets.empty() && mSequenceSets.front().size() >= 4) {
        // profile_idc, the constraint flags and level_idc: the three bytes after the header.
        const std::vector<unsigned char>& set = mSequenceSets.front();
        ParameterSets allSets = mSequenceSets;
        allSets.insert(allSets.end(), mPictureSets.begin(), mPictureSets.end());
        char profileLevel[8];
        std::snprintf(profileLevel, sizeof profileLevel, "%02X%02X%02X", set[1], set[2], set[3]);
        fmtp += std::string(";profile-level-id=") + profileLevel +
                ";sprop-parameter-sets=" + encodeSpropParameterSets(allSets);
    }
    description.addAttribute(fmtp.c_str());
    return 0;
}

int RH264Packetizer::layOut(const RFrame& frame, CPayloadLayout& layout, std::string& why) {
    if (!split(frame.getData(), frame.getSize())) {
        why = "a NAL unit's length runs past the end of the frame";
        return ZR::CM::kResultInputMetaDataParseFailed;
    }
    const auto has = [this](unsigned int type) {
        return std::any_of(mUnits.begin(), mUnits.end(),
                           [type](const Unit& unit) { return unit.type() == type; });
    };
    if ((isKeyFrame(frame) || has(kH264NalIdrSlice)) && !has(kH264NalSequenceParameterSet) &&
        !mSequenceSets.empty()) {
        // The sets go after an access unit delimiter, which must stay first.
        auto at = mUnits.begin() +
                  (!mUnits.empty() && mUnits.front().type() == kH264NalAccessUnitDelimiter);
        for (const ParameterSets* sets : {&mPictureSets, &mSequenceSets}) {
            for (auto set = sets->rbegin(); set != sets->rend(); ++set) {
                at = mUnits.insert(at, Unit{set->data(), set->size()});
            }
        }
    }
    layOutUnits(layout);
    layout.markLast();
    return 0;
}

bool RH264Packetizer::split(const unsigned char* data, std::size_t size) {
    mUnits.clear();
    const auto add = [this](const unsigned char* unit, std::size_t length) {
        const unsigned int type = length > 0 ? h264NalType(unit[0]) : 0;
        if (type != 0 && type < kH264NalStapA) {
            mUnits.push_back(Unit{unit, length});
        }
    };
    if (mLengthSize > 0) {
        for (std::size_t at = 0; at < size;) {
            if (size - at < mLengthSize) {
                return false;
            }
            std::size_t length = 0;
            for (unsigned int k = 0; k < mLengthSize; ++k) {
                length = length << 8 | data[at++];
            }
            if (size - at < length) {
                return false;
            }
            add(data + at, length);
            at += length;
        }
        return true;
    }
    // Annex B: units after 00 00 01 start codes. The zeros in front of a start code (a
    // four-byte start code, trailing zero bytes) belong to no unit, and a unit never ends
    // in a zero byte.
    const auto addTrimmed = [&add](const unsigned char* unit, std::size_t length) {
        while (length > 0 && unit[length - 1] == 0) {
            --length;
        }
        add(unit, length);
    };
    std::size_t start = 0;
    for (std::size_t at = 2; at < size;) {
        const auto* one = static_cast<const unsigned char*>(std::memchr(data + at, 1, size - at));
        if (!one) {
            break;
        }
        at = static_cast<std::size_t>(one - data);
        if (data[at - 1] == 0 && data[at - 2] == 0) {
            addTrimmed(data + start, at - 2 - start);
            start = at + 1;
            at = start + 2;
        } else {
            ++at;
        }
    }
    addTrimmed(data + start, size - start);
    return true;
}

void RH264Packetizer::keepParameterSets() {
    if (!mSequenceSets.empty()) {
        return;
    }
    mPictureSets.clear();
    for (const Unit& unit : mUnits) {
        const unsigned int type = unit.type();
        if (type == kH264NalSequenceParameterSet || type == kH264NalPictureParameterSet) {
            (type == kH264NalSequenceParameterSet ? mSequenceSets : mPictureSets)
                .emplace_back(unit.data, unit.data + unit.size);
        }
    }
}

// Gathers consecutive units into one STAP-A while it fits; a unit larger than a payload is
// fragmented, and a gathering of one goes out as a single NAL unit packet.
void RH264Packetizer::layOutUnits(CPayloadLayout& layout) const {
    const std::size_t room = maxPayload();
    std::size_t first = 0;
    std::size_t gathered = 1;  // the STAP-A's size: its header, and each unit after its length
    for (std::size_t i = 0; i < mUnits.size(); ++i) {
        const std::size_t size = mUnits[i].size;
        if (size > room) {
            layOutAggregate(first, i, layout);
            layOutFragments(mUnits[i], layout);
            first = i + 1;
            gathered = 1;
            continue;
        }
        if (gathered + 2 + size > room) {
            layOutAggregate(first, i, layout);
            first = i;
            gathered = 1;
        }
        gathered += 2 + size;
    }
    layOutAggregate(first, mUnits.size(), layout);
}

void RH264Packetizer::layOutAggregate(std::size_t first, std::size_t end,
                                      CPayloadLayout& layout) const {
    if (end - first == 1) {
        layout.append(mUnits[first].data, mUnits[first].size);
        layout.endPacket();
        return;
    }
    if (end == first) {
        return;
    }
    // The STAP-A header: F set if any unit has it, the highest NRI of the units.
    unsigned int forbidden = 0, priority = 0;
    for (std::size_t i = first; i < end; ++i) {
        forbidden |= mUnits[i].data[0] & 0x80;
        priority = std::max(priority, mUnits[i].data[0] & 0x60u);
    }
    layout.appendByte(forbidden | priority | kH264NalStapA);
    for (std::size_t i = first; i < end; ++i) {
        layout.append16(static_cast<unsigned int>(mUnits[i].size));
        layout.append(mUnits[i].data, mUnits[i].size);
    }
    layout.endPacket();
}

// FU-A: the unit's header becomes the FU indicator (with type 28) and the FU header (with
// the start and end bits), and its payload is cut into pieces that fit.
void RH264Packetizer::layOutFragments(const Unit& unit, CPayloadLayout& layout) const {
    const unsigned int header = unit.data[0];
    const std::size_t piece = maxPayload() - 2;
    for (std::size_t at = 1; at < unit.size; at += piece) {
        const std::size_t length = std::min(piece, unit.size - at);
        layout.appendByte((header & 0xE0) | kH264NalFuA);
        layout.appendByte((header & 0x1F) | (at == 1 ? 0x80 : 0) |
                          (at + length == unit.size ? 0x40 : 0));
        layout.append(unit.data + at, length);
        layout.endPacket();
    }
}

}  // namespace cmcomponents
