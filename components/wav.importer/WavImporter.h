// wav.importer: reads a RIFF/WAVE file of linear PCM (WAVE_FORMAT_PCM, or
// WAVE_FORMAT_EXTENSIBLE with the PCM subformat) of 8, 16 or 24 bits, 1 to 8 channels and
// any whole rate, and writes its samples as one audio track of "lpcm" frames to its first
// output queue through an RQSampleWriter. WavFormat.h describes the samples and the
// RAudioDescription.
//
// openSource() reads the header and rejects a malformed or truncated one with
// kResultInputMetaDataParseFailed, and samples the components do not carry with
// kResultNoValidTracks. A data chunk that claims more than the file holds is read as far as
// the file goes. getMovieInfo() reports the movie (its duration, named after the stream)
// with one RAudioTrackInfo: track 1, mTrackValue "lpcm", duration in seconds, mTrackReal
// the sample rate, mTrackSize the number of sample frames, mKindValue1 the channels,
// mKindValue2 the bits per sample, mKindFixed the sample rate.
//
// Configuration (RImporterConfiguration):
//   "samples-per-frame"  int, sample frames per audio frame; default 1024, 1 to 1048576
//
// Frames: each holds samples-per-frame sample frames (the last one fewer), stamped from
// 0 s on; getStatus() counts them. A failed read of the samples ends the track where it
// failed, with kResultFileReadFailed in the status.
#ifndef CM_COMPONENTS_WAVIMPORTER_H
#define CM_COMPONENTS_WAVIMPORTER_H

#include "common/FileImporter.h"
#include "common/WavFormat.h"

namespace cmcomponents {

class RWavImporter : public RFileImporter {
public:
    static constexpr unsigned int kDefaultSamplesPerFrame = 1024;
    static constexpr unsigned int kMaxSamplesPerFrame = 1 << 20;

    ZR::RPtr<ZR::CM::RMovieInfo> getMovieInfo() override;
    int configure(ZR::CM::RImporterConfiguration& configuration) override;

    const WavFormat& getFormat() const noexcept { return mFormat; }
    unsigned int getSamplesPerFrame() const noexcept { return mSamplesPerFrame; }

protected:
    int readHeader(CByteReader& reader, std::string& why) override;
    void importFrames(CByteReader& reader, ZR::CM::RQFrameWriter& writer) override;

private:
    WavFormat mFormat;
    unsigned int mSamplesPerFrame = kDefaultSamplesPerFrame;
};

}  // namespace cmcomponents

#endif
