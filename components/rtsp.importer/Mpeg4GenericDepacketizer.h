// CMpeg4GenericDepacketizer: AAC carried as MPEG4-GENERIC (RFC 3640), in the AAC-hbr and
// AAC-lbr modes and any other whose AU headers carry sizes: each packet holds the AU header
// section, an optional auxiliary section, then one or more access units, or one fragment
// of an access unit too large for a packet (the marker bit on its last fragment).
//
// Each access unit becomes one raw AAC frame; its timestamp is the packet's plus its AU
// index (the first AU's, then each AU-Index-delta + 1) times the frame length (the
// constantDuration parameter, else 1024 samples). The description's private data is the
// AudioSpecificConfig of the config parameter; a format without AU sizes or without a
// config is refused. A lost or malformed fragment drops its access unit; an access unit
// whole in its own packet survives a loss before it.
#ifndef CM_COMPONENTS_RTSPIMPORTER_MPEG4GENERICDEPACKETIZER_H
#define CM_COMPONENTS_RTSPIMPORTER_MPEG4GENERICDEPACKETIZER_H

#include "rtsp.importer/RtpDepacketizer.h"

#include <vector>

namespace cmcomponents {

class CMpeg4GenericDepacketizer : public CRtpDepacketizer {
public:
    // A fragmented access unit may claim at most this many bytes.
    static constexpr std::size_t kMaxUnitSize = 1u << 20;

    void push(const CRtpPacket& packet, bool afterLoss, Sink& sink) override;
    void flush(Sink& sink) override { (void)sink; }

protected:
    bool describe(const CRtpPayloadFormat& payload, CodedFormat& format, std::string& why) override;

private:
    struct AuHeader {
        std::uint32_t size = 0;
        std::uint32_t index = 0;  // from the first AU of the packet
    };

    // The AU headers of a payload and where the access units begin: false when they do
    // not fit the payload.
    bool readHeaders(const unsigned char* payload, std::size_t size, std::size_t& dataOffset);
    // Goes on with the fragment being put together.
    void continueFragment(const CRtpPacket& packet, const unsigned char* data, std::size_t size,
                          Sink& sink);
    void dropFragment() noexcept;

    // The field widths of the AU headers, in bits.
    unsigned int mSizeLength = 0;
    unsigned int mIndexLength = 0;
    unsigned int mIndexDeltaLength = 0;
    unsigned int mCtsDeltaLength = 0;
    unsigned int mDtsDeltaLength = 0;
    unsigned int mRandomAccessLength = 0;
    unsigned int mStreamStateLength = 0;
    unsigned int mAuxiliarySizeLength = 0;
    std::uint32_t mFrameLength = 1024;

    std::vector<AuHeader> mHeaders;  // of the packet being read
    std::vector<unsigned char> mFragment;
    std::uint32_t mFragmentSize = 0;  // 0: no fragment under way
    std::uint32_t mFragmentTimestamp = 0;
    // The rest of a dropped fragmented unit, still to come, is passed over.
    bool mSkipping = false;
    std::uint32_t mSkipTimestamp = 0;
};

}  // namespace cmcomponents

#endif
