// aac.packetizer: carries AAC ("mp4a", CodedMedia.h) in RTP as MPEG4-GENERIC in the
// AAC-hbr mode of RFC 3640.
//
// Each access unit (one input frame) becomes one RTP frame: a packet holding the
// AU-headers-length (16 bits), one AU header (the unit's size in 13 bits and an index of 0
// in 3) and the unit; a unit too large for one packet is cut into fragments, each after
// the same two fields, which still give the whole unit's size. The packet that ends a unit
// carries the marker; the timestamp is the frame's presentation time at the sample rate.
// Frames in ADTS form (no private data) lose their ADTS header on the way.
//
// Description: "MPEG4-GENERIC/<rate>/<channels>" with
// "a=fmtp:PT streamtype=5;profile-level-id=1;mode=AAC-hbr;sizelength=13;indexlength=3;
// indexdeltalength=3;config=<hex>", the config being the AudioSpecificConfig of the
// private data, or for ADTS one made from the first frame's header.
//
// Failures: ADTS input whose first frame has no ADTS header, or a frame that is not one
// ADTS frame of one raw data block, kResultInputMetaDataParseFailed; a unit larger than
// the 8191 bytes its AU header can say, or an input of unknown sample rate,
// kResultNoPacketizer.
#ifndef CM_COMPONENTS_AACPACKETIZER_H
#define CM_COMPONENTS_AACPACKETIZER_H

#include "common/RTPPacketizer.h"

namespace cmcomponents {

class RAacPacketizer : public RCodedPacketizer {
public:
    RAacPacketizer() : RCodedPacketizer(ZR::fourcc("mp4a"), ZR::fourcc("MP4G")) {}

protected:
    int describe(const CodedFormat& format, const ZR::CM::RFrame* first,
                 ZR::CM::RRTPDescription& description, std::string& why) override;
    int layOut(const ZR::CM::RFrame& frame, CPayloadLayout& layout, std::string& why) override;

private:
    bool mAdts = false;  // the frames come with ADTS headers
};

}  // namespace cmcomponents

#endif
