// The RIFF/WAVE file format for linear PCM: reading a header from a stream, making one for
// a file to write, and the audio description the WAV components put on their queues.
//
// Samples travel between the components in the data format kLinearPCM ("lpcm"): the WAV
// file's own sample layout, channels interleaved, little-endian, 8-bit samples unsigned
// (silence at 128), 16- and 24-bit samples two's complement. RAudioDescription says:
//   mChannels       channels, 1 to 8
//   mBytesPerSample bytes of one sample of one channel: 1, 2 or 3
//   mSampleRate     sample frames per second
//   mAudioInt       the WAVE_FORMAT_EXTENSIBLE speaker mask, 0 when the channels have no
//                   particular speaker assignment
#ifndef CM_COMPONENTS_COMMON_WAVFORMAT_H
#define CM_COMPONENTS_COMMON_WAVFORMAT_H

#include <cm/CMFrame.h>
#include <zr/ZRTypes.h>

#include <string>
#include <vector>

namespace cmcomponents {

class CByteReader;

constexpr unsigned int kLinearPCM = ZR::fourcc("lpcm");

struct WavFormat {
    static constexpr unsigned int kMaxChannels = 8;
    // What a data chunk can hold when the header is the extensible one and a pad byte
    // follows: the RIFF size field must still fit in 32 bits.
    static constexpr unsigned long long kMaxDataBytes = 0xFFFFFFFFull - 60 - 1;

    unsigned int channels = 0;
    unsigned int sampleRate = 0;
    unsigned int bitsPerSample = 0;  // 8, 16 or 24
    unsigned int channelMask = 0;    // speaker positions; 0: unassigned
    unsigned long long dataBytes = 0;

    unsigned int bytesPerSample() const noexcept { return bitsPerSample / 8; }
    unsigned int blockAlign() const noexcept { return channels * bytesPerSample(); }
    unsigned long long sampleFrames() const noexcept {
        return blockAlign() ? dataBytes / blockAlign() : 0;
    }
    double duration() const noexcept {
        return sampleRate ? static_cast<double>(sampleFrames()) / sampleRate : 0.0;
    }
    // The extensible header is written for more than two channels, more than 16 bits or
    // a speaker mask, as the format asks.
    bool needsExtensibleHeader() const noexcept {
        return channels > 2 || bitsPerSample > 16 || channelMask != 0;
    }

    // The description of these samples on a queue.
    ZR::CM::RAudioDescription* createDescription() const;
    // The format of the samples a description announces; false when WAV cannot hold them
    // (not audio, not 1 to 8 channels of 1 to 3 bytes, or a rate that does not round to a
    // whole number above 0 whose byte rate fits 32 bits).
    bool setFromDescription(const ZR::CM::RDescription& description);
};

// Reads a RIFF/WAVE header up to the first byte of the sample data and fills format; the
// data size is the declared one, cut to what the stream holds when it knows its size, and
// rounded down to whole sample frames. Chunks other than "fmt " and "data" are skipped.
// Returns 0; kResultInputMetaDataParseFailed for a header that is malformed or ends too
// early (also: "data" before "fmt ", a block size that does not match the channels and
// bits, no channels, no rate, a byte rate beyond 32 bits); kResultNoValidTracks for a well-formed
// header of samples this format does not carry (not PCM, 32 bits, more than 8 channels). why
// receives a line on what was wrong.
int readWavHeader(CByteReader& reader, WavFormat& format, std::string& why);

// The header of a file holding format.dataBytes of samples: 44 bytes, or 68 for the
// extensible header. Callers keep dataBytes within kMaxDataBytes.
std::vector<unsigned char> makeWavHeader(const WavFormat& format);

}  // namespace cmcomponents

#endif
