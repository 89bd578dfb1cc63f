#include "y4m.importer/Y4MImporter.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMQueueRW.h>
#include <cm/CMTrackInfo.h>
#include <zrbase/timecode.h>

#include <cmath>
#include <cstdlib>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RMovieInfo;
using ZR::CM::RQFrameWriter;
using ZR::CM::RQVideoFrameWriter;
using ZR::CM::RVideoDescription;
using ZR::CM::RVideoFrame;
using ZR::CM::RVideoTrackInfo;

namespace cmcomponents {

namespace {

// "FRAME\n" before every picture.
constexpr unsigned long long kBareFrameHeader = 6;

// Labels per frame: 1, or the whole multiple at which the timecode's mode counts the rate.
unsigned int labelsPerFrame(const zrbase::timecode& timecode, double rate) {
    const double ratio = timecode.fps() / rate;
    return ratio >= 1.5 ? static_cast<unsigned int>(std::lround(ratio)) : 1;
}

}  // namespace

int RY4MImporter::readHeader(CByteReader& reader, std::string& why) {
    mFormat = Y4MFormat();
    mFrameEstimate = -1;
    std::string line;
    switch (reader.readLine(line, Y4MFormat::kMaxHeaderLength)) {
        case CByteReader::Line::kComplete:
            break;
        case CByteReader::Line::kFailed:
            why = "reading the header failed";
            return ZR::CM::kResultFileReadFailed;
        default:
            why = "the header is cut short or has no end";
            return ZR::CM::kResultInputMetaDataParseFailed;
    }
    const int result = parseY4MHeader(line, mFormat, why);
    const long long left = reader.remaining();
    if (result == ZR::CM::kResultOK && left >= 0) {
        mFrameEstimate =
            left / static_cast<long long>(mFormat.picture.frameBytes() + kBareFrameHeader);
    }
    return result;
}

RPtr<RMovieInfo> RY4MImporter::getMovieInfo() {
    RPtr<RMovieInfo> movie = createMovie();
    if (!isOpen()) {
        return movie;
    }
    const double rate = mFormat.frameRate();
    const unsigned long long frames = mFrameEstimate > 0 ? mFrameEstimate : 0;
    const double duration =
        static_cast<double>(frames) * mFormat.rateDenominator / mFormat.rateNumerator;
    movie->mMovieDuration = duration;
    addNewTrack(*movie, new RVideoTrackInfo(1, mFormat.picture.chroma, 0.0, duration, rate, frames,
                                            mFormat.picture.width, mFormat.picture.height,
                                            ZR::Fixed64(rate)));
    return movie;
}

int RY4MImporter::configure(ZR::CM::RImporterConfiguration&) {
    mRun.setPhase(CComponentStatus::kConfigured);
    return ZR::CM::kResultOK;
}

RVideoFrame* RY4MImporter::readFrame(CByteReader& reader, unsigned int index) {
    const auto fail = [&](int result, const std::string& what) {
        mRun.fail(result, "frame " + std::to_string(index) + ": " + what);
        return nullptr;
    };
    std::string line;
    const CByteReader::Line got = reader.readLine(line, Y4MFormat::kMaxFrameHeaderLength);
    if (got == CByteReader::Line::kEnd) {
        return nullptr;
    }
    if (got == CByteReader::Line::kFailed) {
        return fail(ZR::CM::kResultFileReadFailed, "reading its header failed");
    }
    if (got != CByteReader::Line::kComplete || !isY4MFrameHeader(line)) {
        return fail(ZR::CM::kResultInputMetaDataParseFailed, "no FRAME header");
    }
    const auto size = static_cast<unsigned int>(mFormat.picture.frameBytes());
    const auto cutShort = [&](unsigned long long read) {
        return fail(ZR::CM::kResultFileReadFailed, "cut short after " + std::to_string(read) +
                                                       " of " + std::to_string(size) + " bytes");
    };
    // A picture may take up to a GiB: none is allocated for a stream known to end first.
    const long long left = reader.remaining();
    if (left >= 0 && static_cast<unsigned long long>(left) < size) {
        return cutShort(static_cast<unsigned long long>(left));
    }
    // Frames keep 64 bytes behind their data that readers may touch.
    auto* block = static_cast<unsigned char*>(std::malloc(size + 64u));
    if (!block) {
        return fail(ZR::CM::kResultUnspecified, "out of memory");
    }
    const std::size_t read = reader.read(block, size);
    if (read != size) {
        std::free(block);
        return reader.failed() ? fail(ZR::CM::kResultFileReadFailed, "reading its picture failed")
                               : cutShort(read);
    }
    const double duration = static_cast<double>(mFormat.rateDenominator) / mFormat.rateNumerator;
    const double start =
        static_cast<double>(index) * mFormat.rateDenominator / mFormat.rateNumerator;
    return RVideoFrame::createWithData(index, start, duration, mFormat.picture.chroma, size, block,
                                       0, ZR::ConstructionAdopt);
}

void RY4MImporter::importFrames(CByteReader& reader, RQFrameWriter& writer) {
    const RPtr<RQVideoFrameWriter> video(RQVideoFrameWriter::createWithFrameWriter(&writer));
    const RPtr<const RVideoDescription> description(mFormat.createDescription());
    video->setDescription(description);

    const double rate = mFormat.frameRate();
    zrbase::timecode timecode = zrbase::timecode_with_framerate(rate, zrbase::timestamp(0, 1), 1);
    const unsigned int step = labelsPerFrame(timecode, rate);
    unsigned int count = 0;
    for (;;) {
        checkpoint();
        const RPtr<RVideoFrame> frame(readFrame(reader, count));
        if (!frame) {
            break;
        }
        frame->setTimecode(timecode);
        timecode.increment(step);
        video->put(frame);
        mRun.addFrame(frame->getSize());
        ++count;
    }
    video->end(static_cast<double>(count) * mFormat.rateDenominator / mFormat.rateNumerator);
}

}  // namespace cmcomponents
