// h264.packetizer: carries H.264 ("avc1", CodedMedia.h) in RTP as RFC 6184 describes it,
// in the non-interleaved mode (packetization-mode=1) every receiver takes.
//
// Each access unit (one input frame) becomes one RTP frame: its NAL units, whether the
// frame holds them length-prefixed (an avcC private data) or in Annex B form, go out one
// per packet where one fits (single NAL unit packets), several small ones together in an
// STAP-A (the parameter sets with the slice after them, usually), and a unit too large
// for one packet in FU-A fragments. The last packet of the access unit carries the
// marker; the timestamp is the frame's presentation time at 90 kHz. A key frame that does
// not bring its parameter sets along gets them put in front, so that a receiver that
// joins at any key frame can decode from there.
//
// Description: "H264/90000", with "a=fmtp:PT packetization-mode=1" followed by
// profile-level-id and sprop-parameter-sets from the first sequence and picture parameter
// sets: those of the private data (avcC or Annex B), else those the first frame holds.
// A stream without any goes out without those two parameters.
//
// Failures: an avcC record or a NAL unit length that runs past its end,
// kResultInputMetaDataParseFailed. NAL units of the types H.264 leaves unspecified (0, 24
// to 31) are dropped: a receiver would take them for RTP's own aggregation and fragment
// units.
#ifndef CM_COMPONENTS_H264PACKETIZER_H
#define CM_COMPONENTS_H264PACKETIZER_H

#include "common/H264ParameterSets.h"
#include "common/RTPPacketizer.h"

#include <cstddef>
#include <string>
#include <vector>

namespace cmcomponents {

class RH264Packetizer : public RCodedPacketizer {
public:
    RH264Packetizer() : RCodedPacketizer(ZR::fourcc("avc1"), ZR::fourcc("H264")) {}

protected:
    int describe(const CodedFormat& format, const ZR::CM::RFrame* first,
                 ZR::CM::RRTPDescription& description, std::string& why) override;
    int layOut(const ZR::CM::RFrame& frame, CPayloadLayout& layout, std::string& why) override;

private:
    struct Unit {
        const unsigned char* data;
        std::size_t size;
        unsigned int type() const noexcept { return h264NalType(data[0]); }
    };

    // The NAL units of an access unit (mLengthSize says in which form), in mUnits; false
    // when a length runs past the end.
    bool split(const unsigned char* data, std::size_t size);
    // Takes the sequence and picture parameter sets among mUnits, unless some are known.
    void keepParameterSets();
    // Lays out mUnits, aggregating and fragmenting as the payload allows.
    void layOutUnits(CPayloadLayout& layout) const;
    // One packet of mUnits[first, end): a single NAL unit packet or an STAP-A.
    void layOutAggregate(std::size_t first, std::size_t end, CPayloadLayout& layout) const;
    void layOutFragments(const Unit& unit, CPayloadLayout& layout) const;

    unsigned int mLengthSize = 0;  // bytes of a NAL unit's length prefix; 0 for Annex B
    std::vector<std::vector<unsigned char>> mSequenceSets;
    std::vector<std::vector<unsigned char>> mPictureSets;
    std::vector<Unit> mUnits;
};

}  // namespace cmcomponents

#endif
