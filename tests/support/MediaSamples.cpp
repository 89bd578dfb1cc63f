#include "support/MediaSamples.h"

#include "support/MediaTools.h"

#include <cmath>

namespace cmtest {

Bytes makeTone(unsigned int bits, unsigned int channels, unsigned int frames, double peak) {
    const unsigned int bytes = bits / 8;
    const double full = std::ldexp(1.0, static_cast<int>(bits) - 1) - 1;
    Bytes out;
    out.reserve(static_cast<std::size_t>(frames) * channels * bytes);
    for (unsigned int i = 0; i < frames; ++i) {
        for (unsigned int c = 0; c < channels; ++c) {
            const double phase = 2 * M_PI * (220.0 + 110.0 * c) * i / 48000.0;
            long v = std::lround(peak * full * std::sin(phase));
            if (bits == 8) {
                v += 128;
            }
            for (unsigned int b = 0; b < bytes; ++b) {
                out.push_back(static_cast<unsigned char>(v >> (8 * b)));
            }
        }
    }
    return out;
}

long sampleAt(const Bytes& samples, unsigned int bits, std::size_t i) {
    const unsigned int bytes = bits / 8;
    const unsigned char* p = samples.data() + i * bytes;
    switch (bytes) {
        case 1:
            return static_cast<long>(p[0]) - 128;
        case 2:
            return static_cast<short>(p[0] | (p[1] << 8));
        default: {
            const long v = p[0] | (p[1] << 8) | (p[2] << 16);
            return v >= 0x800000 ? v - 0x1000000 : v;
        }
    }
}

std::size_t pictureBytes(unsigned int width, unsigned int height, const std::string& chroma) {
    const std::size_t cw = chroma == "444" ? width : (width + 1) / 2;
    const std::size_t ch = chroma == "420" ? (height + 1) / 2 : height;
    return static_cast<std::size_t>(width) * height + 2 * cw * ch;
}

Bytes makeGradient(unsigned int width, unsigned int height, const std::string& chroma,
                   unsigned int frames) {
    const std::size_t luma = static_cast<std::size_t>(width) * height;
    const std::size_t plane = (pictureBytes(width, height, chroma) - luma) / 2;
    Bytes out;
    for (unsigned int f = 0; f < frames; ++f) {
        for (unsigned int y = 0; y < height; ++y) {
            for (unsigned int x = 0; x < width; ++x) {
                out.push_back(static_cast<unsigned char>(x * 3 + y * 2 + f * 5));
            }
        }
        for (std::size_t i = 0; i < plane; ++i) {
            out.push_back(static_cast<unsigned char>(64 + (i + f) % 128));
        }
        for (std::size_t i = 0; i < plane; ++i) {
            out.push_back(static_cast<unsigned char>(200 - (i * 7 + f) % 150));
        }
    }
    return out;
}

bool writeWavWithSox(const std::string& path, const Bytes& samples, unsigned int rate,
                     unsigned int bits, unsigned int channels) {
    const std::string raw = path + ".raw";
    writeFile(raw, samples);
    const std::string command = "sox -t raw -r " + std::to_string(rate) + " -e " +
                                (bits == 8 ? "unsigned" : "signed") + " -b " +
                                std::to_string(bits) + " -c " + std::to_string(channels) + " " +
                                shellQuote(raw) + " " + shellQuote(path);
    return runCommand(command).status == 0;
}

bool writeY4MWithFfmpeg(const std::string& path, const Bytes& pictures, unsigned int width,
                        unsigned int height, const std::string& chroma, const std::string& rate) {
    const std::string raw = path + ".yuv";
    writeFile(raw, pictures);
    const std::string command = "ffmpeg -v error -nostdin -y -f rawvideo -pix_fmt yuv" + chroma +
                                "p -s " + std::to_string(width) + "x" + std::to_string(height) +
                                " -r " + rate + " -i " + shellQuote(raw) + " " + shellQuote(path);
    return runCommand(command).status == 0;
}

}  // namespace cmtest
