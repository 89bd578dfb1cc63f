#include <cm/CMFrame.h>

#include <zr/CException.h>

#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace ZR;
using namespace ZR::CM;
using cmtest::Tracked;

namespace {

constexpr unsigned int kFormat = fourcc("raw ");

// A malloc() block holding the bytes 1, 2, 3, ..., as producers hand them to frames.
unsigned char* pattern(unsigned int size) {
    auto* block = static_cast<unsigned char*>(std::malloc(size));
    for (unsigned int i = 0; i < size; ++i) {
        block[i] = static_cast<unsigned char>(i + 1);
    }
    return block;
}

bool holdsPattern(const RFrame& frame, unsigned int size) {
    for (unsigned int i = 0; i < size; ++i) {
        if (frame.getData()[i] != static_cast<unsigned char>(i + 1)) {
            return false;
        }
    }
    return frame.getSize() == size;
}

// A block the frame allocated itself: at least 64 bytes beyond its capacity, and every one
// of them writable (the sanitizer builds report a write past the block).
void expectSlack(RFrame& frame) {
    ASSERT_NE(frame.getData(), nullptr);
    EXPECT_GE(malloc_usable_size(frame.getData()), frame.getCapacity() + 64u);
    frame.getData()[frame.getCapacity() + 63] = 0xEE;
}

void expectAllocationError(const CException& e, const char* function) {
    EXPECT_STREQ(e.getTypeName(), "ZR::CException");
    EXPECT_STREQ(e.getFile(), "lib/cm/CMFrame");
    EXPECT_STREQ(e.getMessage(), "Memory allocation error.");
    EXPECT_NE(std::string(e.getFunction()).find(function), std::string::npos) << e.getFunction();
}

}  // namespace

TEST(FrameTest, CreateReservesCapacityPlusSlack) {
    RPtr<RVideoFrame> empty(RVideoFrame::create(0));
    EXPECT_EQ(empty->getSize(), 0u);
    EXPECT_EQ(empty->getCapacity(), 0u);
    EXPECT_EQ(empty->getData(), nullptr);

    RPtr<RAudioFrame> room(RAudioFrame::create(100));
    EXPECT_EQ(room->getSize(), 0u);
    EXPECT_EQ(room->getCapacity(), 100u);
    expectSlack(*room);

    unsigned char bytes[10] = {};
    RPtr<RTextFrame> copied(RTextFrame::createWithData(kFormat, 10, bytes, ConstructionCopy));
    expectSlack(*copied);
    RPtr<RTextFrame> copy(copied->copy());
    expectSlack(*copy);
    copy->setData(500, std::vector<unsigned char>(500).data(), ConstructionCopy);
    expectSlack(*copy);
}

TEST(FrameTest, ConstructionFlagsDecideWhoOwnsTheBytes) {
    // Copy: the frame has bytes of its own and the caller keeps its block.
    unsigned char* source = pattern(32);
    RPtr<RVideoFrame> copied(RVideoFrame::createWithData(kFormat, 32, source, 7, ConstructionCopy));
    EXPECT_NE(copied->getData(), source);
    source[0] = 0;
    EXPECT_TRUE(holdsPattern(*copied, 32));
    EXPECT_EQ(copied->getCapacity(), 32u);
    std::free(source);

    // Copy and free: the caller's block is gone (the leak checker sees it otherwise, and
    // the address sanitizer a double free if the test freed it too).
    RPtr<RAudioFrame> freed(RAudioFrame::createWithData(kFormat, 32, pattern(32), 0, 0,
                                                        ConstructionCopy | ConstructionFreeSource));
    EXPECT_TRUE(holdsPattern(*freed, 32));

    // Adopt: the caller's block becomes the frame's, with capacity equal to size. The free
    // bit alone does not copy.
    for (ConstructionFlags flags : {ConstructionAdopt, ConstructionFreeSource}) {
        unsigned char* adopted = pattern(24);
        RPtr<RTextFrame> frame(
            RTextFrame::createWithData(3, 1.5, 0.5, kFormat, 24, adopted, flags));
        EXPECT_EQ(frame->getData(), adopted);
        EXPECT_EQ(frame->getCapacity(), 24u);
        EXPECT_EQ(frame->getFrameNumber(), 3u);
        EXPECT_EQ(frame->getStartTime(), 1.5);
        EXPECT_EQ(frame->getDuration(), 0.5);
        EXPECT_EQ(frame->getAuxTime(), 0.0);
        EXPECT_EQ(frame->getDataFormat(), kFormat);
    }

    // The same rules through setData, which also frees the block it replaces.
    RPtr<RVideoFrame> frame(RVideoFrame::create(8));
    unsigned char* adopted = pattern(16);
    frame->setData(16, adopted, ConstructionAdopt);
    EXPECT_EQ(frame->getData(), adopted);
    frame->setData(12, pattern(12), ConstructionCopy | ConstructionFreeSource);
    EXPECT_EQ(frame->getData(), adopted);
    EXPECT_TRUE(holdsPattern(*frame, 12));
}

TEST(FrameTest, SetDataGrowsTheBlockButNeverShrinksIt) {
    std::vector<unsigned char> bytes(300, 0x5A);
    RPtr<RVideoFrame> frame(RVideoFrame::create(100));
    const unsigned char* first = frame->getData();

    frame->setData(10, bytes.data(), ConstructionCopy);
    EXPECT_EQ(frame->getData(), first);
    EXPECT_EQ(frame->getCapacity(), 100u);
    EXPECT_EQ(frame->getSize(), 10u);

    frame->setData(200, bytes.data(), ConstructionCopy);
    EXPECT_EQ(frame->getCapacity(), 200u);
    EXPECT_EQ(frame->getSize(), 200u);
    EXPECT_EQ(std::memcmp(frame->getData(), bytes.data(), 200), 0);
    const unsigned char* grown = frame->getData();

    frame->setData(50, bytes.data(), ConstructionCopy);
    EXPECT_EQ(frame->getData(), grown);
    EXPECT_EQ(frame->getCapacity(), 200u);
    EXPECT_EQ(frame->getSize(), 50u);

    // An adopted block is exactly as large as its data and is reused by a copy that fits.
    unsigned char* adopted = pattern(64);
    frame->setData(64, adopted, ConstructionAdopt);
    frame->setData(64, bytes.data(), ConstructionCopy);
    EXPECT_EQ(frame->getData(), adopted);
    EXPECT_EQ(frame->getData()[63], 0x5A);

    // Handing a frame its own bytes back is harmless.
    frame->setData(32, frame->getData() + 8, ConstructionCopy);
    frame->setData(32, frame->getData(), ConstructionAdopt);
    EXPECT_EQ(frame->getData(), adopted);
    EXPECT_EQ(frame->getSize(), 32u);
}

TEST(FrameTest, CopyingIntoAFrameWithoutBlockThrows) {
    unsigned char byte = 1;
    RPtr<RVideoFrame> frame(RVideoFrame::create(0));
    try {
        frame->setData(0, &byte, ConstructionCopy);
        FAIL() << "an empty copy into a frame without a block must throw";
    } catch (const CException& e) {
        expectAllocationError(e, "RFrame::setData");
    }
    EXPECT_EQ(frame->getData(), nullptr);
    EXPECT_EQ(frame->getSize(), 0u);
    frame->setData(1, &byte, ConstructionCopy);
    EXPECT_EQ(frame->getData()[0], 1);
}

TEST(FrameTest, AllocationFailureThrowsAndLeaksNothing) {
    constexpr unsigned int kHuge = 0xFFFFFF00u;
    unsigned char bytes[16] = {};
    RPtr<Tracked> value(new Tracked());
    RPtr<RVideoFrame> frame(RVideoFrame::createWithData(kFormat, 16, bytes, 0, ConstructionCopy));
    frame->addParameter("name", value);
    // A frame that claims more bytes than its block holds: copying it fails to allocate
    // before it reads anything.
    RPtr<RAudioFrame> claims(
        RAudioFrame::createWithData(kFormat, kHuge, pattern(16), 0, 0, ConstructionAdopt));
    claims->addParameter("name", value);

    cmtest::AddressSpaceLimit limit(256u << 20);
    try {
        RVideoFrame::create(kHuge);
        FAIL() << "create must throw";
    } catch (const CException& e) {
        expectAllocationError(e, "RFrame::RFrame(unsigned int)");
    }
    EXPECT_THROW(RTextFrame::createWithData(frame.addr(), kFormat, kHuge, bytes, ConstructionCopy),
                 CException);
    try {
        claims->copy();
        FAIL() << "copy must throw";
    } catch (const CException& e) {
        expectAllocationError(e, "RFrame::RFrame(const ");
    }
    EXPECT_EQ(value->retain_count(), 3);  // the test's and the two frames'

    // A failed growth keeps the old size; the capacity already says the new one.
    try {
        frame->setData(kHuge, bytes, ConstructionCopy);
        FAIL() << "setData must throw";
    } catch (const CException& e) {
        expectAllocationError(e, "RFrame::setData");
    }
    EXPECT_EQ(frame->getSize(), 16u);
    EXPECT_EQ(frame->getCapacity(), kHuge);
    EXPECT_EQ(frame->getData(), nullptr);
}

TEST(FrameTest, ParameterReplacementReleasesTheOldValue) {
    const int baseline = Tracked::live().load();
    {
        RPtr<RVideoFrame> frame(RVideoFrame::create(0));
        frame->addParameter("gain", new Tracked(1));
        EXPECT_EQ(Tracked::live().load(), baseline + 1);

        // Names are compared by their text, not their address.
        const std::string sameName = "gain";
        frame->addParameter(sameName.c_str(), RPtr<zrbase::object_refcount>(new Tracked(2)));
        EXPECT_EQ(Tracked::live().load(), baseline + 1);
        EXPECT_EQ(frame->getParameterCount(), 1);
        EXPECT_EQ(frame->getParameterCount("gain"), 1);
        const auto* held = dynamic_cast<const Tracked*>(frame->getParameter("gain").addr());
        ASSERT_NE(held, nullptr);
        EXPECT_EQ(held->value(), 2);

        // A null value still makes an entry; absent and null names find nothing.
        frame->addParameter("empty", nullptr);
        EXPECT_EQ(frame->getParameterCount(), 2);
        EXPECT_EQ(frame->getParameterCount("empty"), 1);
        EXPECT_FALSE(frame->getParameter("empty"));
        EXPECT_FALSE(frame->getParameter("absent"));
        EXPECT_EQ(frame->getParameterCount(nullptr), 0);
        frame->addParameter(nullptr, RPtr<zrbase::object_refcount>(new Tracked(3)));
        EXPECT_EQ(frame->getParameterCount(), 2);
        EXPECT_EQ(Tracked::live().load(), baseline + 1);

        frame->addParameter("other", new Tracked(4));
        frame->removeParameter("gain");
        EXPECT_EQ(Tracked::live().load(), baseline + 1);
        EXPECT_EQ(frame->getParameterCount("gain"), 0);
    }
    EXPECT_EQ(Tracked::live().load(), baseline);
}

TEST(FrameTest, CopiesShareParametersButNotData) {
    RPtr<Tracked> value(new Tracked(5));
    RPtr<RVideoFrame> source(RVideoFrame::create(100));
    std::vector<unsigned char> bytes(10, 0x33);
    source->setData(10, bytes.data(), ConstructionCopy);
    source->setFrameNumber(42);
    source->setStartTime(2.5);
    source->setAuxTime(9.0);
    source->setDuration(0.04);
    source->setDataFormat(kFormat);
    source->setVideoValue2(77);
    source->setTimecode(zrbase::timecode(zrbase::timecode::mode_25, 1, 2, 3, 4, 0));
    source->addParameter("p", value);

    RPtr<RVideoFrame> copy(source->copy());
    EXPECT_EQ(copy->type(), fourcc("vide"));
    EXPECT_EQ(copy->getParameter("p").addr(), value.addr());
    EXPECT_EQ(value->retain_count(), 3);
    EXPECT_NE(copy->getData(), source->getData());
    EXPECT_EQ(std::memcmp(copy->getData(), bytes.data(), 10), 0);
    // The copy's block is just large enough for the data.
    EXPECT_EQ(copy->getCapacity(), 10u);
    EXPECT_EQ(copy->getFrameNumber(), 42u);
    EXPECT_EQ(copy->getStartTime(), 2.5);
    EXPECT_EQ(copy->getAuxTime(), 9.0);
    EXPECT_EQ(copy->getDuration(), 0.04);
    EXPECT_EQ(copy->getDataFormat(), kFormat);
    EXPECT_EQ(copy->getVideoValue2(), 77u);
    EXPECT_EQ(copy->getTimecode().total_frames(), source->getTimecode().total_frames());

    copy->getData()[0] = 0;
    copy->addParameter("q", value);
    EXPECT_EQ(source->getData()[0], 0x33);
    EXPECT_EQ(source->getParameterCount(), 1);

    // An empty frame copies without a block, whatever room it had.
    RPtr<RAudioFrame> empty(RAudioFrame::create(100));
    RPtr<RAudioFrame> emptyCopy(empty->copy());
    EXPECT_EQ(emptyCopy->getData(), nullptr);
    EXPECT_EQ(emptyCopy->getCapacity(), 0u);
    EXPECT_EQ(emptyCopy->type(), fourcc("audi"));
}

TEST(FrameTest, DerivedFramesKeepTimesAndParametersOfTheirSource) {
    RPtr<Tracked> value(new Tracked());
    unsigned char bytes[4] = {1, 2, 3, 4};
    RPtr<RVideoFrame> video(
        RVideoFrame::createWithData(9, 3.0, 0.5, kFormat, 4, bytes, 11, ConstructionCopy));
    video->setAuxTime(1.25);
    video->setVideoValue2(22);
    video->setTimecode(zrbase::timecode(zrbase::timecode::mode_30, 0, 0, 1, 0, 0));
    video->addParameter("p", value);

    RPtr<RVideoFrame> derived(
        RVideoFrame::createWithData(video.addr(), fourcc("yuv2"), 2, bytes, 33, ConstructionCopy));
    EXPECT_EQ(derived->getVideoValue(), 33u);
    EXPECT_EQ(derived->getVideoValue2(), 22u);
    EXPECT_EQ(derived->getTimecode().total_frames(), 30u);
    EXPECT_EQ(derived->getDataFormat(), fourcc("yuv2"));
    EXPECT_EQ(derived->getSize(), 2u);
    EXPECT_EQ(derived->getFrameNumber(), 9u);
    EXPECT_EQ(derived->getStartTime(), 3.0);
    EXPECT_EQ(derived->getAuxTime(), 1.25);
    EXPECT_EQ(derived->getDuration(), 0.5);
    EXPECT_EQ(derived->getParameter("p").addr(), value.addr());

    // Audio values are never inherited.
    RPtr<RAudioFrame> audio(
        RAudioFrame::createWithData(5, 1.0, 1.0, kFormat, 4, bytes, 100, 200, ConstructionCopy));
    RPtr<RAudioFrame> derivedAudio(
        RAudioFrame::createWithData(audio.addr(), kFormat, 4, bytes, 1, 2, ConstructionCopy));
    EXPECT_EQ(derivedAudio->getAudioValue1(), 1u);
    EXPECT_EQ(derivedAudio->getAudioValue2(), 2u);
    EXPECT_EQ(derivedAudio->getFrameNumber(), 5u);

    // A text frame made from any frame copies its base part.
    RPtr<RTextFrame> text(RTextFrame::createWithFrame(video.addr()));
    EXPECT_EQ(text->type(), fourcc("text"));
    EXPECT_EQ(text->getSize(), 4u);
    EXPECT_EQ(text->getData()[3], 4);
    EXPECT_EQ(text->getStartTime(), 3.0);
    EXPECT_EQ(text->getParameter("p").addr(), value.addr());
    EXPECT_FALSE(RPtr<RTextFrame>(RTextFrame::createWithFrame(nullptr)));

    // Without a source, a derived frame is a plain one.
    RPtr<RVideoFrame> orphan(
        RVideoFrame::createWithData(nullptr, kFormat, 4, bytes, 1, ConstructionCopy));
    EXPECT_EQ(orphan->getFrameNumber(), 0u);
    EXPECT_EQ(orphan->getParameterCount(), 0);
    EXPECT_EQ(orphan->getTimecode().mode(), zrbase::timecode::mode_none);
}

// Frames are made on one thread and released on another, as they are after crossing a
// queue; several readers copy one shared frame at once. The sanitizers check the reference
// counts and the leak checker that every frame and parameter is gone.
TEST(FrameTest, FramesMayBeCopiedAndReleasedOnOtherThreads) {
    const int baseline = Tracked::live().load();
    std::vector<RPtr<RFrame>> made;
    std::thread producer([&made] {
        for (int i = 0; i < 200; ++i) {
            RPtr<RFrame> frame(
                RVideoFrame::createWithData(kFormat, 64, pattern(64), 0, ConstructionAdopt));
            frame->addParameter("p", new Tracked(i));
            made.push_back(frame);
        }
    });
    producer.join();
    std::thread consumer([frames = std::move(made)]() mutable { frames.clear(); });
    consumer.join();
    EXPECT_EQ(Tracked::live().load(), baseline);

    RPtr<RFrame> published(
        RAudioFrame::createWithData(kFormat, 188, pattern(188), 0, 0, ConstructionAdopt));
    published->addParameter("p", new Tracked());
    const RPtr<const RFrame> shared(published);
    std::atomic<int> intact{0};
    cmtest::runConcurrently(4, [&](int) {
        for (int i = 0; i < 100; ++i) {
            RPtr<RFrame> copy(shared->copy());
            if (holdsPattern(*copy, 188) && copy->getParameter("p")) {
                ++intact;
            }
        }
    });
    EXPECT_EQ(intact.load(), 400);
}

TEST(DescriptionTest, CopiesKeepFieldsAndShareParameters) {
    RPtr<Tracked> value(new Tracked());
    RPtr<RVideoDescription> video(new RVideoDescription());
    EXPECT_EQ(video->mFrameRate, 0.0);
    EXPECT_EQ(video->mVideoInt1 + video->mVideoInt2 + video->mVideoInt3, 0u);
    video->mVideoInt1 = 1920;
    video->mVideoInt2 = 1080;
    video->mVideoReal1 = 1.5f;
    video->mVideoReal2 = 2.5f;
    video->mFrameRate = 25.0;
    video->mVideoInt3 = 3;
    video->addParameter("p", value);
    video->addParameter("p", value);
    EXPECT_EQ(video->getParameterCount("p"), 1);

    RPtr<RQDescription> generic(video->copy());
    EXPECT_EQ(generic->type(), fourcc("vide"));
    auto* copy = dynamic_cast<RVideoDescription*>(generic.addr());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->mVideoInt1, 1920u);
    EXPECT_EQ(copy->mVideoInt2, 1080u);
    EXPECT_EQ(copy->mVideoReal1, 1.5f);
    EXPECT_EQ(copy->mVideoReal2, 2.5f);
    EXPECT_EQ(copy->mFrameRate, 25.0);
    EXPECT_EQ(copy->mVideoInt3, 3u);
    EXPECT_EQ(copy->getParameter("p").addr(), value.addr());
    EXPECT_EQ(value->retain_count(), 3);
    copy->removeParameter("p");
    EXPECT_EQ(video->getParameterCount(), 1);
    EXPECT_EQ(value->retain_count(), 2);

    RPtr<RAudioDescription> audio(new RAudioDescription());
    EXPECT_EQ(audio->mSampleRate, 0.0);
    EXPECT_EQ(audio->mChannels, 0u);
    audio->mChannels = 2;
    audio->mAudioInt = 9;
    audio->mBytesPerSample = 2;
    audio->mSampleRate = 48000.0;
    RPtr<RAudioDescription> audioCopy(audio->copy());
    EXPECT_EQ(audioCopy->type(), fourcc("audi"));
    EXPECT_EQ(audioCopy->mChannels, 2u);
    EXPECT_EQ(audioCopy->mAudioInt, 9u);
    EXPECT_EQ(audioCopy->mBytesPerSample, 2u);
    EXPECT_EQ(audioCopy->mSampleRate, 48000.0);

    RPtr<RTextDescription> text(new RTextDescription());
    EXPECT_EQ(text->mTextValue, 0u);
    text->mTextValue = 0x0123456789ABCDEFull;
    RPtr<RTextDescription> textCopy(text->copy());
    EXPECT_EQ(textCopy->type(), fourcc("text"));
    EXPECT_EQ(textCopy->mTextValue, 0x0123456789ABCDEFull);
}
