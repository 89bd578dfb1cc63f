// CH264Depacketizer: H.264 over RTP (RFC 6184) in the single NAL unit and non-interleaved
// modes: single NAL unit packets, STAP-A aggregates and FU-A fragments become access units
// in Annex B form (each NAL unit after a 00 00 00 01 start code), one per RTP timestamp,
// ended by the marker bit or by the first packet of the next timestamp; at the end of the
// stream a unit still open is handed on when it holds a slice.
//
// The description's private data holds the parameter sets of sprop-parameter-sets, also
// in Annex B form, and the picture size and profile read from its sequence parameter set;
// a stream whose description has none is completed from the first parameter sets sent in
// band. A unit is a key frame when it holds an IDR slice. Interleaved mode (STAP-B, MTAP,
// FU-B) is refused by describe(); such packets in a stream described otherwise are
// malformed.
#ifndef CM_COMPONENTS_RTSPIMPORTER_H264DEPACKETIZER_H
#define CM_COMPONENTS_RTSPIMPORTER_H264DEPACKETIZER_H

#include "common/H264ParameterSets.h"
#include "rtsp.importer/RtpDepacketizer.h"

#include <vector>

namespace cmcomponents {

class CH264Depacketizer : public CRtpDepacketizer {
public:
    // Larger units are dropped, so that a stream of fragments without an end cannot take
    // the memory.
    static constexpr std::size_t kMaxUnitSize = 16u << 20;

    void push(const CRtpPacket& packet, bool afterLoss, Sink& sink) override;
    void flush(Sink& sink) override;
    void completeFormat(CodedFormat& format) const override;

protected:
    bool describe(const CRtpPayloadFormat& payload, CodedFormat& format, std::string& why) override;

private:
    void begin(std::uint32_t timestamp);
    // Hands the unit on when it is whole, else counts it as dropped.
    void end(Sink& sink);
    // Appends a whole NAL unit (header byte first), keeping the parameter sets it may be.
    void append(const unsigned char* nal, std::size_t size);
    // Appends the start of a NAL unit after its start code.
    void appendNal(const unsigned char* nal, std::size_t size);
    // Appends the rest of a fragmented NAL unit.
    void appendFragment(const unsigned char* bytes, std::size_t size);
    void aggregate(const unsigned char* payload, std::size_t size);
    void fragment(const unsigned char* payload, std::size_t size);
    // The unit can no longer be handed on.
    void damage() noexcept { mDamaged = true; }
    bool fits(std::size_t size) noexcept;

    std::vector<unsigned char> mUnit;
    std::uint32_t mTimestamp = 0;
    bool mOpen = false;           // a unit is being put together
    bool mDamaged = false;        // it lost a part
    bool mKey = false;            // it holds an IDR slice
    bool mPicture = false;        // it holds a slice
    bool mInFragment = false;     // a FU-A has started and not ended
    NalUnit mSequenceParameters;  // the last sent in band
    NalUnit mPictureParameters;
};

}  // namespace cmcomponents

#endif
