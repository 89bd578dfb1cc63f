#include "wav.exporter/WavExporter.h"

#include "common/StreamIO.h"

#include <cm/CMComponentStatus.h>

#include <cstdio>
#include <vector>

using ZR::CM::CComponentStatus;
using ZR::CM::kResultFileWriteFailed;
using ZR::CM::kResultNoValidTracks;
using ZR::CM::kResultOK;

namespace cmcomponents {

int RWavExporter::configure(ZR::CM::RExporterConfiguration&) {
    mRun.setPhase(CComponentStatus::kConfigured);
    return kResultOK;
}

int RWavExporter::writeBytes(const unsigned char* data, std::size_t n, std::string& why) {
    if (mFormat.dataBytes + n > WavFormat::kMaxDataBytes) {
        why = "more samples than a WAV file can hold";
        return kResultFileWriteFailed;
    }
    std::size_t written = 0;
    const bool complete = writeAll(*mStream, data, n, &written);
    mFormat.dataBytes += written;
    if (!complete) {
        why = "writing the samples failed";
        return kResultFileWriteFailed;
    }
    return kResultOK;
}

int RWavExporter::begin(const ZR::CM::RDescription& description, std::string& why) {
    mFormat = WavFormat();
    if (!mFormat.setFromDescription(description)) {
        why = "the input is not 1 to 8 channels of 8-, 16- or 24-bit audio";
        return kResultNoValidTracks;
    }
    const std::vector<unsigned char> header = makeWavHeader(mFormat);
    if (!writeAll(*mStream, header.data(), header.size())) {
        why = "writing the header failed";
        return kResultFileWriteFailed;
    }
    return kResultOK;
}

int RWavExporter::writeFrame(const ZR::CM::RFrame& frame, std::string& why) {
    if (frame.type() != ZR::fourcc("audi") || frame.getDataFormat() != kLinearPCM) {
        why = "a frame that is not lpcm audio";
        return kResultNoValidTracks;
    }
    return writeBytes(frame.getData(), frame.getSize(), why);
}

int RWavExporter::finish(std::string& why) {
    const unsigned int partial =
        static_cast<unsigned int>(mFormat.dataBytes % mFormat.blockAlign());
    // A block holds at most 8 channels of 3 bytes; one more byte is the pad.
    const unsigned char zeros[8 * 3 + 1] = {};
    if (partial != 0) {
        const int result = writeBytes(zeros, mFormat.blockAlign() - partial, why);
        if (result != kResultOK) {
            return result;
        }
    }
    // The pad byte is not part of the data.
    if ((mFormat.dataBytes & 1) != 0 && !writeAll(*mStream, zeros, 1)) {
        why = "writing the pad byte failed";
        return kResultFileWriteFailed;
    }
    if (!rewriteHeader()) {
        why = "cannot go back to write the sizes into the header";
        return kResultFileWriteFailed;
    }
    return kResultOK;
}

bool RWavExporter::rewriteHeader() {
    const std::vector<unsigned char> header = makeWavHeader(mFormat);
    return mStream->lseek(0, SEEK_SET) == 0 && writeAll(*mStream, header.data(), header.size());
}

// The header takes the place of the one written first, so it needs no more room.
void RWavExporter::salvage() {
    mFormat.dataBytes -= mFormat.dataBytes % mFormat.blockAlign();
    rewriteHeader();
}

}  // namespace cmcomponents
