// wav.exporter: writes the "lpcm" audio frames of its first input queue (WavFormat.h) as a
// RIFF/WAVE file: the canonical 44-byte header for one or two channels of 8 or 16 bits
// without a speaker mask, WAVE_FORMAT_EXTENSIBLE otherwise. The header goes out first with
// sizes of 0 and is written again with the real RIFF and data sizes once the input has
// ended, so the stream must be able to seek back to its start. A sample frame the input
// left incomplete is completed with zeros, and an odd data size gets its pad byte.
//
// The description must be audio of 1 to 8 channels of 1 to 3 bytes at a rate that rounds
// to a whole number, and every frame must carry "lpcm"; otherwise the run fails with
// kResultNoValidTracks. More samples than a WAV file can hold (about 4 GiB), a failed
// write or a stream that cannot seek fail it with kResultFileWriteFailed.
//
// When a write fails, the header is written again with the sizes of the whole sample
// frames that reached the file, so that what was written before the failure still plays.
//
// Configuration (RExporterConfiguration): no keys.
#ifndef CM_COMPONENTS_WAVEXPORTER_H
#define CM_COMPONENTS_WAVEXPORTER_H

#include "common/FileExporter.h"
#include "common/WavFormat.h"

namespace cmcomponents {

class RWavExporter : public RFileExporter {
public:
    int configure(ZR::CM::RExporterConfiguration& configuration) override;

    // The format written; its dataBytes count the samples written so far.
    const WavFormat& getFormat() const noexcept { return mFormat; }

protected:
    int begin(const ZR::CM::RDescription& description, std::string& why) override;
    int writeFrame(const ZR::CM::RFrame& frame, std::string& why) override;
    int finish(std::string& why) override;
    void salvage() override;

private:
    int writeBytes(const unsigned char* data, std::size_t n, std::string& why);
    // Goes back to the start and writes the header for mFormat.dataBytes.
    bool rewriteHeader();

    WavFormat mFormat;
};

}  // namespace cmcomponents

#endif
