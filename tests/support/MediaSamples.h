// Test media made on the spot: a multi-channel tone and a moving gradient, both
// deterministic, and their files as the system's own tools (sox, ffmpeg) write them, so
// the importers are fed files that another program made.
#ifndef CM_TESTS_SUPPORT_MEDIASAMPLES_H
#define CM_TESTS_SUPPORT_MEDIASAMPLES_H

#include <string>
#include <vector>

namespace cmtest {

using Bytes = std::vector<unsigned char>;

// frames sample frames in the WAV layout (interleaved, little-endian, 8-bit unsigned):
// channel c is a sine of its own frequency with an amplitude of peak (0 to 1) of full
// scale.
Bytes makeTone(unsigned int bits, unsigned int channels, unsigned int frames, double peak);
// Decodes sample i of such a buffer as a signed value (8-bit samples centred on 0).
long sampleAt(const Bytes& samples, unsigned int bits, std::size_t i);

// Sizes of one planar picture; chroma is "420", "422" or "444".
std::size_t pictureBytes(unsigned int width, unsigned int height, const std::string& chroma);
// frames planar pictures (Y, then Cb, then Cr) of a gradient that moves from frame to frame.
Bytes makeGradient(unsigned int width, unsigned int height, const std::string& chroma,
                   unsigned int frames);

// The samples as a WAV file written by sox; false when sox fails.
bool writeWavWithSox(const std::string& path, const Bytes& samples, unsigned int rate,
                     unsigned int bits, unsigned int channels);
// The pictures as a Y4M file written by ffmpeg; false when ffmpeg fails.
bool writeY4MWithFfmpeg(const std::string& path, const Bytes& pictures, unsigned int width,
                        unsigned int height, const std::string& chroma, const std::string& rate);

}  // namespace cmtest

#endif
