#include "wav.importer/WavImporter.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMQueueRW.h>
#include <cm/CMTrackInfo.h>

#include <algorithm>
#include <vector>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RAudioDescription;
using ZR::CM::RAudioTrackInfo;
using ZR::CM::RMovieInfo;
using ZR::CM::RQFrameWriter;
using ZR::CM::RQSampleWriter;

namespace cmcomponents {

int RWavImporter::readHeader(CByteReader& reader, std::string& why) {
    mFormat = WavFormat();
    const int result = readWavHeader(reader, mFormat, why);
    // A header cut short by a stream that failed says nothing about the file's format.
    if (result != ZR::CM::kResultOK && reader.failed()) {
        why = "reading the header failed";
        return ZR::CM::kResultFileReadFailed;
    }
    return result;
}

RPtr<RMovieInfo> RWavImporter::getMovieInfo() {
    RPtr<RMovieInfo> movie = createMovie();
    if (!isOpen()) {
        return movie;
    }
    const double duration = mFormat.duration();
    movie->mMovieDuration = duration;
    addNewTrack(*movie,
                new RAudioTrackInfo(1, kLinearPCM, 0.0, duration, mFormat.sampleRate,
                                    mFormat.sampleFrames(), mFormat.channels, mFormat.bitsPerSample,
                                    ZR::Fixed64(mFormat.sampleRate)));
    return movie;
}

int RWavImporter::configure(ZR::CM::RImporterConfiguration& configuration) {
    mSamplesPerFrame = static_cast<unsigned int>(configuration.getInt(
        "samples-per-frame", kDefaultSamplesPerFrame, 1, static_cast<int>(kMaxSamplesPerFrame)));
    mRun.setPhase(CComponentStatus::kConfigured);
    return ZR::CM::kResultOK;
}

void RWavImporter::importFrames(CByteReader& reader, RQFrameWriter& writer) {
    const RPtr<RQSampleWriter> samples(new RQSampleWriter(&writer, mSamplesPerFrame));
    const RPtr<const RAudioDescription> description(mFormat.createDescription());
    samples->setDescription(description);
    samples->setDataFormat(kLinearPCM);
    samples->setStartTime(0.0);

    const unsigned int blockAlign = mFormat.blockAlign();
    std::vector<unsigned char> block(static_cast<std::size_t>(mSamplesPerFrame) * blockAlign);
    unsigned long long left = mFormat.dataBytes;
    while (left > 0) {
        checkpoint();
        const std::size_t want =
            static_cast<std::size_t>(std::min<unsigned long long>(block.size(), left));
        const std::size_t got = reader.read(block.data(), want);
        // Only whole sample frames go on: a file cut inside one loses that one.
        const std::size_t whole = got - got % blockAlign;
        if (whole > 0) {
            samples->writeSamples(block.data(),
                                  static_cast<unsigned int>(whole / mFormat.bytesPerSample()));
            mRun.addFrame(whole);
        }
        if (got < want) {
            if (reader.failed()) {
                mRun.fail(ZR::CM::kResultFileReadFailed, "reading the samples failed");
            }
            break;  // otherwise the file was cut short: its samples end here
        }
        left -= got;
    }
    samples->end();
}

}  // namespace cmcomponents
