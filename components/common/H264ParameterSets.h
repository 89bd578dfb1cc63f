// H.264 parameter sets as the network components meet them: the NAL units of an SDP's
// sprop-parameter-sets, Annex B text built from NAL units, and what a sequence parameter
// set says about the pictures (profile, level and size), which a receiver needs before the
// first picture arrives to describe its track.
//
// Reading a sequence parameter set goes only as far as the picture size: the fields before
// it are skipped by their syntax, nothing after the frame cropping is read. Any input is
// safe: a unit that is cut short or malformed reads as false.
//
// Free functions without state; any thread.
#ifndef CM_COMPONENTS_COMMON_H264PARAMETERSETS_H
#define CM_COMPONENTS_COMMON_H264PARAMETERSETS_H

#include <cstddef>
#include <string>
#include <vector>

namespace cmcomponents {

using NalUnit = std::vector<unsigned char>;

// NAL unit types the network components look at: those of the stream, then those that
// only the RTP payload format uses, for several units in one packet (STAP-A) and for one
// unit over several packets (FU-A).
constexpr unsigned int kH264NalIdrSlice = 5;
constexpr unsigned int kH264NalSequenceParameterSet = 7;
constexpr unsigned int kH264NalPictureParameterSet = 8;
constexpr unsigned int kH264NalAccessUnitDelimiter = 9;
constexpr unsigned int kH264NalStapA = 24;
constexpr unsigned int kH264NalFuA = 28;

inline unsigned int h264NalType(unsigned char header) {
    return header & 0x1Fu;
}

struct H264PictureInfo {
    int profile = 0;  // profile_idc
    int level = 0;    // level_idc
    unsigned int width = 0;
    unsigned int height = 0;
};

// Reads a sequence parameter set (the whole NAL unit, its header byte first); false when
// it is not one or cannot be read.
bool readH264SequenceParameterSet(const unsigned char* nal, std::size_t size,
                                  H264PictureInfo& info);

// The NAL units of an sprop-parameter-sets value: base64 units separated by commas. Units
// that do not decode are left out.
std::vector<NalUnit> decodeSpropParameterSets(const std::string& text);
// The sprop-parameter-sets value of the units, in order.
std::string encodeSpropParameterSets(const std::vector<NalUnit>& units);

// Appends the unit after a four-byte start code (00 00 00 01).
void appendAnnexB(std::vector<unsigned char>& out, const unsigned char* nal, std::size_t size);

}  // namespace cmcomponents

#endif
