#include "y4m.exporter/Y4MExporter.h"

#include "common/StreamIO.h"

#include <cm/CMComponentStatus.h>

using ZR::CM::CComponentStatus;
using ZR::CM::kResultFileWriteFailed;
using ZR::CM::kResultNoValidTracks;
using ZR::CM::kResultOK;

namespace cmcomponents {

namespace {

const unsigned char kFrameHeader[] = {'F', 'R', 'A', 'M', 'E', '\n'};

}  // namespace

int RY4MExporter::configure(ZR::CM::RExporterConfiguration&) {
    mRun.setPhase(CComponentStatus::kConfigured);
    return kResultOK;
}

int RY4MExporter::begin(const ZR::CM::RDescription& description, std::string& why) {
    mFramesWritten = 0;
    if (!mFormat.setFromDescription(description)) {
        why = "the input is not 8-bit planar 4:2:0, 4:2:2 or 4:4:4 video with a frame rate";
        return kResultNoValidTracks;
    }
    const std::string header = makeY4MHeader(mFormat);
    if (!writeAll(*mStream, reinterpret_cast<const unsigned char*>(header.data()), header.size())) {
        why = "writing the header failed";
        return kResultFileWriteFailed;
    }
    return kResultOK;
}

int RY4MExporter::writeFrame(const ZR::CM::RFrame& frame, std::string& why) {
    if (frame.type() != ZR::fourcc("vide") || frame.getDataFormat() != mFormat.picture.chroma ||
        frame.getSize() != mFormat.picture.frameBytes()) {
        why = "frame " + std::to_string(mFramesWritten) +
              " does not hold one picture of the described layout";
        return kResultNoValidTracks;
    }
    if (!writeAll(*mStream, kFrameHeader, sizeof kFrameHeader) ||
        !writeAll(*mStream, frame.getData(), frame.getSize())) {
        why = "writing frame " + std::to_string(mFramesWritten) + " failed";
        return kResultFileWriteFailed;
    }
    ++mFramesWritten;
    return kResultOK;
}

int RY4MExporter::finish(std::string&) {
    return kResultOK;
}

}  // namespace cmcomponents
