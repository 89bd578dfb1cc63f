// cmhost generate tone OUTPUT [--seconds S] [--rate R] [--channels C] [--frequency F]
// cmhost generate video OUTPUT [--seconds S] [--width W] [--height H] [--fps N]
//
// Writes test media with no input: a source component built into cmhost makes the frames
// (a 16-bit sine tone, or 4:2:0 pictures of a moving gradient) and the exporter that the
// output's extension calls for writes them, through the same queues and threads as any
// other pipeline.
#include "Assembly.h"
#include "CommandLine.h"
#include "Commands.h"
#include "Host.h"
#include "Pipeline.h"

#include <fcntl.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <vector>

namespace cmhost {

namespace {

const char kHelp[] =
    "usage: cmhost generate tone OUTPUT [--seconds S] [--rate R] [--channels C] [--frequency F]\n"
    "       cmhost generate video OUTPUT [--seconds S] [--width W] [--height H] [--fps N]\n"
    "\n"
    "  writes a 16-bit sine tone (default 2 s, 48000 Hz, 2 channels, 440 Hz) or a\n"
    "  4:2:0 moving gradient (default 2 s, 320x240, 25 fps) with the exporter that\n"
    "  OUTPUT's extension calls for";

// The formats the sample components exchange: interleaved little-endian PCM, and planar
// 4:2:0 pictures described by width, height, layout and frame rate.
constexpr unsigned int kLinearPCM = ZR::fourcc("lpcm");
constexpr unsigned int kPlanar420 = ZR::fourcc("I420");

// What a source reports: completed once it has written everything, with the frames and
// bytes it put on its queue.
class Source : public ZR::CM::CMMultipleQueueComponent {
public:
    unsigned int type() const override { return ZR::fourcc("impt"); }
    ZR::CM::CComponentStatus getStatus() override {
        ZR::CM::CComponentStatus status;
        const ZR::CM::RQueue* queue = mOutputQueues.empty() ? nullptr : mOutputQueues.front();
        status.mStatusCode =
            mDone ? ZR::CM::CComponentStatus::kCompleted : ZR::CM::CComponentStatus::kWorking;
        status.mFrames = queue ? static_cast<int>(queue->getFramesPut()) : 0;
        status.mBytes = queue ? static_cast<int>(queue->getBytesPut()) : 0;
        return status;
    }

protected:
    std::atomic<bool> mDone{false};
};

class ToneSource : public Source {
public:
    ToneSource(double seconds, unsigned int rate, unsigned int channels, double frequency)
        : mSeconds(seconds), mRate(rate), mChannels(channels), mFrequency(frequency) {}

    // A source has no inputs: the run loop comes straight here.
    void flush() override {
        ZR::CM::RQSampleWriter writer(getWriter(0), 1024);
        ZR::RPtr<ZR::CM::RAudioDescription> description(new ZR::CM::RAudioDescription);
        description->mChannels = mChannels;
        description->mBytesPerSample = 2;
        description->mSampleRate = mRate;
        writer.setDescriptionP(description.addr());
        writer.setDataFormat(kLinearPCM);
        const auto total = static_cast<unsigned long long>(mSeconds * mRate);
        std::vector<unsigned char> chunk;
        for (unsigned long long first = 0; first < total; first += kChunkFrames) {
            const unsigned long long count =
                std::min<unsigned long long>(kChunkFrames, total - first);
            chunk.clear();
            for (unsigned long long i = first; i < first + count; ++i) {
                const double value = 0.5 * std::sin(2 * M_PI * mFrequency * i / mRate);
                const auto sample = static_cast<short>(std::lround(value * 32767));
                for (unsigned int c = 0; c < mChannels; ++c) {
                    chunk.push_back(static_cast<unsigned char>(sample & 0xFF));
                    chunk.push_back(static_cast<unsigned char>((sample >> 8) & 0xFF));
                }
            }
            writer.writeSamples(chunk.data(), static_cast<unsigned int>(count * mChannels));
        }
        writer.end();
        mDone = true;
    }

private:
    static constexpr unsigned long long kChunkFrames = 4800;
    double mSeconds;
    unsigned int mRate;
    unsigned int mChannels;
    double mFrequency;
};

class VideoSource : public Source {
public:
    VideoSource(double seconds, unsigned int width, unsigned int height, double fps)
        : mSeconds(seconds), mWidth(width), mHeight(height), mFps(fps) {}

    void flush() override {
        ZR::RPtr<ZR::CM::RQVideoFrameWriter> writer(
            ZR::CM::RQVideoFrameWriter::createWithFrameWriter(getWriter(0)));
        ZR::RPtr<ZR::CM::RVideoDescription> description(new ZR::CM::RVideoDescription);
        description->mVideoInt1 = mWidth;
        description->mVideoInt2 = mHeight;
        description->mVideoInt3 = kPlanar420;
        description->mFrameRate = mFps;
        writer->setDescriptionP(description.addr());
        const unsigned int chromaWidth = (mWidth + 1) / 2, chromaHeight = (mHeight + 1) / 2;
        const unsigned int lumaBytes = mWidth * mHeight;
        const unsigned int size = lumaBytes + 2 * chromaWidth * chromaHeight;
        const auto frames = static_cast<unsigned int>(mSeconds * mFps);
        std::vector<unsigned char> picture(size);
        for (unsigned int n = 0; n < frames; ++n) {
            for (unsigned int y = 0; y < mHeight; ++y) {
                for (unsigned int x = 0; x < mWidth; ++x) {
                    picture[y * mWidth + x] = static_cast<unsigned char>(x + y + 4 * n);
                }
            }
            for (unsigned int i = 0; i < 2 * chromaWidth * chromaHeight; ++i) {
                picture[lumaBytes + i] = static_cast<unsigned char>(128 + (i % chromaWidth) / 4);
            }
            ZR::RPtr<ZR::CM::RFrame> frame(ZR::CM::RVideoFrame::createWithData(
                kPlanar420, size, picture.data(), 0, ZR::ConstructionCopy));
            frame->setStartTime(n / mFps);
            writer->put(frame);
        }
        writer->end(frames / mFps);
        mDone = true;
    }

private:
    double mSeconds;
    unsigned int mWidth;
    unsigned int mHeight;
    double mFps;
};

}  // namespace

int runGenerate(const GlobalOptions& global, const Words& args) {
    const CommandLine line(
        args, kHelp,
        {"--seconds", "--rate", "--channels", "--frequency", "--width", "--height", "--fps"});
    if (line.has("--help")) {
        std::puts(kHelp);
        return 0;
    }
    line.expectPositionals({"tone or video", "OUTPUT"});
    const std::string what = line.positional(0, "tone or video");
    const double seconds = line.number("--seconds", 2, 0, 3600);
    ZR::RPtr<Source> source;
    if (what == "tone") {
        source =
            new ToneSource(seconds, static_cast<unsigned>(line.number("--rate", 48000, 1, 768000)),
                           static_cast<unsigned>(line.number("--channels", 2, 1, 8)),
                           line.number("--frequency", 440, 0, 384000));
    } else if (what == "video") {
        source =
            new VideoSource(seconds, static_cast<unsigned>(line.number("--width", 320, 2, 8192)),
                            static_cast<unsigned>(line.number("--height", 240, 2, 8192)),
                            line.number("--fps", 25, 1, 240));
    } else {
        throw line.error("generate makes a tone or a video, not " + what);
    }
    const Host host(global.config, global.verbose);
    const std::string path = line.positional(1, "OUTPUT");
    ZR::CM::RExporterInfo& exporter =
        exporterTaking(host, path, {what == "tone" ? kLinearPCM : kPlanar420});
    Pipeline pipeline;
    ZR::CM::RQueue* queue = pipeline.addQueue("", what);
    std::vector<ZR::CM::RQueue*> none, outputs{queue};
    pipeline.addStage(what, source);
    source->init(none, outputs);
    addExporter(host, pipeline, exporter, host.openStream(path, O_RDWR | O_CREAT | O_TRUNC), {},
                {queue});
    return runPipeline(pipeline, "generate");
}

}  // namespace cmhost
