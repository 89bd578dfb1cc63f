// CL16Depacketizer: 16-bit linear PCM over RTP (RFC 3551), big-endian samples of every
// channel in turn. Each packet becomes one frame of "lpcm" in the little-endian WAV layout
// of common/WavFormat.h; a payload that is not a whole number of sample frames is dropped.
#ifndef CM_COMPONENTS_RTSPIMPORTER_L16DEPACKETIZER_H
#define CM_COMPONENTS_RTSPIMPORTER_L16DEPACKETIZER_H

#include "rtsp.importer/RtpDepacketizer.h"

#include <vector>

namespace cmcomponents {

class CL16Depacketizer : public CRtpDepacketizer {
public:
    void push(const CRtpPacket& packet, bool afterLoss, Sink& sink) override;
    void flush(Sink& sink) override { (void)sink; }

protected:
    bool describe(const CRtpPayloadFormat& payload, CodedFormat& format, std::string& why) override;

private:
    std::size_t mFrameSize = 2;  // bytes of one sample frame
    std::vector<unsigned char> mSamples;
};

}  // namespace cmcomponents

#endif
