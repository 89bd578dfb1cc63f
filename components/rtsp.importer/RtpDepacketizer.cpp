#include "rtsp.importer/RtpDepacketizer.h"

#include "rtsp.importer/H264Depacketizer.h"
#include "rtsp.importer/L16Depacketizer.h"
#include "rtsp.importer/Mpeg4GenericDepacketizer.h"

namespace cmcomponents {

std::unique_ptr<CRtpDepacketizer> CRtpDepacketizer::create(const CRtpPayloadFormat& payload,
                                                           CodedFormat& format, std::string& why) {
    std::unique_ptr<CRtpDepacketizer> depacketizer;
    if (payload.encoding == "H264") {
        depacketizer.reset(new CH264Depacketizer);
    } else if (payload.encoding == "MPEG4-GENERIC") {
        depacketizer.reset(new CMpeg4GenericDepacketizer);
    } else if (payload.encoding == "L16") {
        depacketizer.reset(new CL16Depacketizer);
    } else {
        why = payload.encoding.empty()
                  ? "payload type " + std::to_string(payload.payloadType) + " has no rtpmap"
                  : "no depacketizer for " + payload.encoding;
        return nullptr;
    }
    format = CodedFormat();
    if (!depacketizer->describe(payload, format, why)) {
        return nullptr;
    }
    return depacketizer;
}

}  // namespace cmcomponents
