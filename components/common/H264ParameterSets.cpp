#include "common/H264ParameterSets.h"

#include "common/BitReader.h"

#include <zr/CBuffer.h>

#include <algorithm>
#include <cstdint>
#include <sstream>

namespace cmcomponents {

namespace {

// The payload after the header byte without emulation prevention bytes.
std::vector<unsigned char> rbspOf(const unsigned char* nal, std::size_t size) {
    std::vector<unsigned char> rbsp;
    rbsp.reserve(size);
    int zeros = 0;
    for (std::size_t i = 1; i < size; ++i) {
        if (zeros >= 2 && nal[i] == 3) {
            zeros = 0;
            continue;
        }
        zeros = nal[i] == 0 ? zeros + 1 : 0;
        rbsp.push_back(nal[i]);
    }
    return rbsp;
}

void skipScalingList(CBitReader& reader, int size) {
    int last = 8;
    int next = 8;
    for (int j = 0; j < size && reader.ok(); ++j) {
        if (next != 0) {
            next = (last + reader.se() + 256) % 256;
        }
        last = next == 0 ? last : next;
    }
}

bool hasChromaFormat(int profile) {
    static const int kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
    return std::find(std::begin(kProfiles), std::end(kProfiles), profile) != std::end(kProfiles);
}

}  // namespace

bool readH264SequenceParameterSet(const unsigned char* nal, std::size_t size,
                                  H264PictureInfo& info) {
    if (size < 4 || h264NalType(nal[0]) != kH264NalSequenceParameterSet) {
        return false;
    }
    const std::vector<unsigned char> rbsp = rbspOf(nal, size);
    CBitReader reader(rbsp.data(), rbsp.size() * 8);
    const int profile = static_cast<int>(reader.bits(8));
    reader.bits(8);  // constraint flags
    const int level = static_cast<int>(reader.bits(8));
    reader.ue();  // seq_parameter_set_id
    unsigned int chromaFormat = 1;
    bool separatePlanes = false;
    if (hasChromaFormat(profile)) {
        chromaFormat = reader.ue();
        if (chromaFormat == 3) {
            separatePlanes = reader.bits(1) != 0;
        }
        reader.ue();     // bit_depth_luma_minus8
        reader.ue();     // bit_depth_chroma_minus8
        reader.bits(1);  // qpprime_y_zero_transform_bypass_flag
        if (reader.bits(1)) {
            const int lists = chromaFormat != 3 ? 8 : 12;
            for (int i = 0; i < lists && reader.ok(); ++i) {
                if (reader.bits(1)) {
                    skipScalingList(reader, i < 6 ? 16 : 64);
                }
            }
        }
    }
    reader.ue();  // log2_max_frame_num_minus4
    const unsigned int pocType = reader.ue();
    if (pocType == 0) {
        reader.ue();
    } else if (pocType == 1) {
        reader.bits(1);
        reader.se();
        reader.se();
        const unsigned int cycle = reader.ue();
        for (unsigned int i = 0; i < cycle && i < 256 && reader.ok(); ++i) {
            reader.se();
        }
    }
    reader.ue();     // max_num_ref_frames
    reader.bits(1);  // gaps_in_frame_num_value_allowed_flag
    const std::uint64_t widthInBlocks = std::uint64_t{reader.ue()} + 1;
    const std::uint64_t heightInUnits = std::uint64_t{reader.ue()} + 1;
    const unsigned int frameOnly = reader.bits(1);
    if (!frameOnly) {
        reader.bits(1);  // mb_adaptive_frame_field_flag
    }
    reader.bits(1);                        // direct_8x8_inference_flag
    std::uint64_t crop[4] = {0, 0, 0, 0};  // left, right, top, bottom
    if (reader.bits(1)) {
        for (std::uint64_t& side : crop) {
            side = reader.ue();
        }
    }
    if (!reader.ok() || chromaFormat > 3) {
        return false;
    }
    const bool monochrome = chromaFormat == 0 || separatePlanes;
    const std::uint64_t cropX = monochrome || chromaFormat == 3 ? 1 : 2;
    const std::uint64_t cropY = (monochrome || chromaFormat != 1 ? 1 : 2) * (2 - frameOnly);
    const std::uint64_t width = widthInBlocks * 16;
    const std::uint64_t height = heightInUnits * 16 * (2 - frameOnly);
    const std::uint64_t cropWidth = cropX * (crop[0] + crop[1]);
    const std::uint64_t cropHeight = cropY * (crop[2] + crop[3]);
    if (width > 65535 || height > 65535 || cropWidth >= width || cropHeight >= height) {
        return false;
    }
    info.profile = profile;
    info.level = level;
    info.width = static_cast<unsigned int>(width - cropWidth);
    info.height = static_cast<unsigned int>(height - cropHeight);
    return true;
}

std::vector<NalUnit> decodeSpropParameterSets(const std::string& text) {
    std::vector<NalUnit> units;
    std::istringstream items(text);
    std::string item;
    while (std::getline(items, item, ',')) {
        ZR::CBuffer decoded;
        if (item.empty() || !decoded.decodeBase64(ZR::CString(item.c_str()), 0) ||
            decoded.getSize() == 0) {
            continue;
        }
        units.emplace_back(decoded.getData(), decoded.getData() + decoded.getSize());
    }
    return units;
}

std::string encodeSpropParameterSets(const std::vector<NalUnit>& units) {
    std::string text;
    for (const NalUnit& unit : units) {
        ZR::CBuffer bytes;
        bytes.append(static_cast<int>(unit.size()), unit.data());
        ZR::CString encoded;
        encoded.encodeBase64(bytes, 0);
        text += (text.empty() ? "" : ",") + std::string(encoded.c_str());
    }
    return text;
}

void appendAnnexB(std::vector<unsigned char>& out, const unsigned char* nal, std::size_t size) {
    static const unsigned char kStartCode[] = {0, 0, 0, 1};
    out.insert(out.end(), std::begin(kStartCode), std::end(kStartCode));
    out.insert(out.end(), nal, nal + size);
}

}  // namespace cmcomponents
