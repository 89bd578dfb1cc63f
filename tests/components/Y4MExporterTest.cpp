#include "y4m.exporter/Y4MExporter.h"

#include <gtest/gtest.h>

#include "common/PlanarPicture.h"

#include <cm/CMFrame.h>

#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <string>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::RY4MExporter;
using cmtest::Bytes;

namespace {

RPtr<RVideoDescription> picture(unsigned int width, unsigned int height, unsigned int chroma,
                                double rate) {
    RPtr<RVideoDescription> d(new RVideoDescription);
    d->mVideoInt1 = width;
    d->mVideoInt2 = height;
    d->mVideoInt3 = chroma;
    d->mFrameRate = rate;
    return d;
}

// count frames cut from pictures, each of size bytes, with the given format.
std::vector<RPtr<RFrame>> framesOf(const Bytes& pictures, std::size_t size, unsigned int format) {
    std::vector<RPtr<RFrame>> frames;
    for (std::size_t at = 0; at + size <= pictures.size(); at += size) {
        frames.emplace_back(RVideoFrame::createWithData(format, static_cast<unsigned int>(size),
                                                        const_cast<unsigned char*>(&pictures[at]),
                                                        0, ZR::ConstructionCopy));
    }
    return frames;
}

CComponentStatus exportTo(const std::string& path, const RDescription* description,
                          const std::vector<RPtr<RFrame>>& frames) {
    RPtr<RY4MExporter> exporter(new RY4MExporter);
    return cmtest::exportFrames(*exporter, path, description, frames);
}

}  // namespace

// Descriptions that are not a picture with a rate, and frames that are not one picture of
// the described layout, fail the run; the pictures before a bad frame are in the file,
// and the input is read to its end either way.
TEST(Y4MExporterTest, InputThatIsNotOnePicturePerFrameFailsTheRun) {
    ASSERT_TRUE(cmtest::haveTool("ffprobe")) << "ffmpeg is needed: scripts/install-deps.sh";
    cmtest::TempDir dir;
    const unsigned int i420 = cmcomponents::kPlanar420;
    const Bytes pictures = cmtest::makeGradient(6, 4, "420", 5);
    const std::size_t size = cmtest::pictureBytes(6, 4, "420");
    std::vector<RPtr<RFrame>> frames = framesOf(pictures, size, i420);
    frames.insert(frames.begin() + 2, framesOf(pictures, size - 1, i420)[0]);

    CComponentStatus status =
        exportTo(dir.file("short.y4m"), picture(6, 4, i420, 25).addr(), frames);
    EXPECT_TRUE(cmtest::endedWith(status, kResultNoValidTracks, "frame 2"));
    EXPECT_EQ(cmtest::probeStream(dir.file("short.y4m"), true)["nb_read_frames"], "2");

    const auto fails = [&](const RDescription* description, unsigned int format) {
        return exportTo(dir.file("bad.y4m"), description, framesOf(pictures, size, format))
                   .mExtra == static_cast<unsigned int>(kResultNoValidTracks);
    };
    EXPECT_TRUE(fails(picture(6, 4, i420, 25).addr(), cmcomponents::kPlanar444));
    EXPECT_TRUE(fails(picture(6, 4, i420, 0).addr(), i420));
    EXPECT_TRUE(fails(picture(0, 4, i420, 25).addr(), i420));
    EXPECT_TRUE(fails(picture(6, 4, ZR::fourcc("NV12"), 25).addr(), i420));
    EXPECT_TRUE(fails(RPtr<RAudioDescription>(new RAudioDescription).addr(), i420));
    EXPECT_TRUE(fails(nullptr, i420));
    EXPECT_FALSE(fails(picture(6, 4, i420, 25).addr(), i420));
}
