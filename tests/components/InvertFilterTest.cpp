#include "invert.filter/InvertFilter.h"

#include <gtest/gtest.h>

#include <zrbase/timecode.h>

#include "support/MediaPipeline.h"
#include "support/MediaSamples.h"
#include "support/TestSupport.h"

#include <string>

using ZR::RPtr;
using namespace ZR::CM;
using cmcomponents::RInvertFilter;
using cmtest::Bytes;

namespace {

// The pictures with the chosen planes turned into their negatives.
Bytes inverted(const Bytes& pictures, std::size_t pictureSize, std::size_t lumaSize, bool luma,
               bool chroma) {
    Bytes out = pictures;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const bool isLuma = i % pictureSize < lumaSize;
        if (isLuma ? luma : chroma) {
            out[i] = static_cast<unsigned char>(255 - out[i]);
        }
    }
    return out;
}

}  // namespace

// Inverted frames keep what the importer gave them: numbers, times, timecodes and
// parameters; with chroma inversion switched off (through start(), as a host configures a
// filter) only the luma plane turns. A frame that is not one picture of the described layout fails
// the run, and what follows it is dropped while the input is still read to its end.
TEST(InvertFilterTest, FramesKeepTheirTimingAndBadFramesFailTheRun) {
    RPtr<RVideoDescription> description(new RVideoDescription);
    description->mVideoInt1 = 4;
    description->mVideoInt2 = 2;
    description->mVideoInt3 = cmcomponents::kPlanar444;
    description->mFrameRate = 25;
    const Bytes pictures = cmtest::makeGradient(4, 2, "444", 4);
    RPtr<RFrame> marker(RVideoFrame::create(1));
    std::vector<RPtr<RFrame>> frames;
    for (unsigned int i = 0; i < 4; ++i) {
        RPtr<RVideoFrame> frame(RVideoFrame::createWithData(
            i, i / 25.0, 1 / 25.0, cmcomponents::kPlanar444, 24,
            const_cast<unsigned char*>(&pictures[24 * i]), 0, ZR::ConstructionCopy));
        frame->setTimecode(zrbase::timecode(zrbase::timecode::mode_25, 1, 2, 3, i, 9));
        frame->addParameter("marker", RPtr<zrbase::object_refcount>(marker.addr()));
        frames.push_back(frame);
    }

    RPtr<RInvertFilter> invert(new RInvertFilter);
    cmtest::Filtered filtered = cmtest::filterFrames(*invert, nullptr, description.addr(), frames);
    EXPECT_EQ(filtered.description.addr(), description.addr());
    ASSERT_EQ(filtered.frames.size(), 4u);
    for (unsigned int i = 0; i < 4; ++i) {
        const auto& out = static_cast<const RVideoFrame&>(*filtered.frames[i]);
        EXPECT_EQ(out.getFrameNumber(), i);
        EXPECT_DOUBLE_EQ(out.getStartTime(), i / 25.0);
        EXPECT_DOUBLE_EQ(out.getDuration(), 1 / 25.0);
        EXPECT_EQ(zrbase::string_with_timecode(out.getTimecode(), true),
                  "01:02:03:0" + std::to_string(i));
        EXPECT_EQ(out.getParameter("marker").addr(), marker.addr());
        EXPECT_EQ(Bytes(out.getData(), out.getData() + 24),
                  inverted(Bytes(&pictures[24 * i], &pictures[24 * i] + 24), 24, 8, true, true));
    }

    RPtr<RFilterConfiguration> lumaOnly(new RFilterConfiguration);
    lumaOnly->setInt("invert-chroma", 0);
    filtered = cmtest::filterFrames(*invert, lumaOnly.addr(), description.addr(), frames);
    ASSERT_EQ(filtered.frames.size(), 4u);
    EXPECT_EQ(Bytes(filtered.frames[3]->getData(), filtered.frames[3]->getData() + 24),
              inverted(Bytes(&pictures[72], &pictures[72] + 24), 24, 8, true, false));

    frames[1] = RVideoFrame::createWithData(cmcomponents::kPlanar444, 23,
                                            const_cast<unsigned char*>(pictures.data()), 0,
                                            ZR::ConstructionCopy);
    RPtr<RInvertFilter> second(new RInvertFilter);
    filtered = cmtest::filterFrames(*second, nullptr, description.addr(), frames);
    EXPECT_EQ(filtered.frames.size(), 1u);
    EXPECT_EQ(second->getStatus().mExtra, static_cast<unsigned int>(kResultNoValidTracks));

    // The next run starts afresh.
    frames.erase(frames.begin() + 1);
    filtered = cmtest::filterFrames(*second, nullptr, description.addr(), frames);
    EXPECT_EQ(filtered.frames.size(), 3u);
    EXPECT_EQ(second->getStatus().mExtra, 0u);
    EXPECT_EQ(second->getStatus().mFrames, 3);
}
