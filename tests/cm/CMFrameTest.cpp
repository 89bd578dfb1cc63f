#include <cm/CMFrame.h>

#include <zr/CException.h>

#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sanitizer/asan_interface.h>
#include <sys/resource.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace ZR;
using namespace ZR::CM;
using cmtest::Tracked;

#if defined(__has_feature)
#define CM_HAS_ASAN __has_feature(address_sanitizer)
#define CM_HAS_SANITIZER_SHADOW \
    (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define CM_HAS_ASAN 0
#define CM_HAS_SANITIZER_SHADOW 0
#endif

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

// A block the frame allocated itself: 64 bytes beyond its capacity, all writable (the
// address sanitizer reports a write past the block).
void expectSlack(RFrame& frame) {
    ASSERT_NE(frame.getData(), nullptr);
    EXPECT_GE(malloc_usable_size(frame.getData()), frame.getCapacity() + 64u);
    frame.getData()[frame.getCapacity() + 63] = 0xEE;
}

void expectAllocationError(const std::function<void()>& action, const char* function) {
    try {
        action();
        ADD_FAILURE() << "no exception from " << function;
    } catch (const CException& e) {
        EXPECT_STREQ(e.getTypeName(), "ZR::CException");
        EXPECT_STREQ(e.getFile(), "lib/cm/CMFrame");
        EXPECT_STREQ(e.getMessage(), "Memory allocation error.");
        EXPECT_NE(std::string(e.getFunction()).find(function), std::string::npos)
            << e.getFunction();
    }
}

}  // namespace

TEST(FrameTest, ConstructionFlagsDecideWhoOwnsTheBytes) {
    EXPECT_EQ(RPtr<RVideoFrame>(RVideoFrame::create(0))->getData(), nullptr);
    RPtr<RAudioFrame> room(RAudioFrame::create(100));
    EXPECT_EQ(room->getSize(), 0u);
    EXPECT_EQ(room->getCapacity(), 100u);
    expectSlack(*room);

    // Copy: the frame has bytes of its own and the caller keeps its block.
    unsigned char* source = pattern(32);
    RPtr<RVideoFrame> copied(RVideoFrame::createWithData(kFormat, 32, source, 7, ConstructionCopy));
    source[0] = 0;
    EXPECT_TRUE(holdsPattern(*copied, 32));
    expectSlack(*copied);
    std::free(source);

    // Copy and free: the leak checker sees the caller's block if it is not freed, the
    // address sanitizer a double free if it is freed twice.
    RPtr<RTextFrame> freed(RTextFrame::createWithData(1, 2.0, 0.5, kFormat, 32, pattern(32),
                                                      ConstructionCopy | ConstructionFreeSource));
    EXPECT_TRUE(holdsPattern(*freed, 32));
    EXPECT_EQ(freed->getStartTime(), 2.0);

    // Adopt: the caller's block becomes the frame's; the free bit alone does not copy.
    for (ConstructionFlags flags : {ConstructionAdopt, ConstructionFreeSource}) {
        unsigned char* adopted = pattern(24);
        RPtr<RAudioFrame> frame(RAudioFrame::createWithData(kFormat, 24, adopted, 1, 2, flags));
        EXPECT_EQ(frame->getData(), adopted);
        EXPECT_EQ(frame->getCapacity(), 24u);
    }
    // Adopting into a frame made with room keeps the size and capacity it was given.
    unsigned char* block = pattern(100);
    room->initWithData(block, ConstructionAdopt);
    EXPECT_EQ(room->getData(), block);
    EXPECT_EQ(room->getSize(), 0u);
    EXPECT_EQ(room->getCapacity(), 100u);
    // Adopting no block gives an empty frame, not a size without bytes behind it.
    RPtr<RVideoFrame> none(RVideoFrame::createWithData(kFormat, 16, nullptr, 0, ConstructionAdopt));
    EXPECT_EQ(none->getSize() + none->getCapacity(), 0u);
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
    expectSlack(*frame);
    const unsigned char* grown = frame->getData();
    frame->setData(50, bytes.data(), ConstructionCopy);
    EXPECT_EQ(frame->getData(), grown);
    EXPECT_EQ(frame->getCapacity(), 200u);

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

    // Even an empty copy needs a block, and a frame made without one has none.
    RPtr<RVideoFrame> bare(RVideoFrame::create(0));
    expectAllocationError([&] { bare->setData(0, bytes.data(), ConstructionCopy); },
                          "RFrame::setData");
    bare->setData(1, bytes.data(), ConstructionCopy);
    EXPECT_EQ(bare->getData()[0], 0x5A);
}

TEST(FrameTest, AllocationFailureThrowsAndLeaksNothing) {
    constexpr unsigned int kHuge = 0xFFFFFF00u;
    unsigned char bytes[16] = {};
    RPtr<Tracked> value(new Tracked());
    RPtr<RVideoFrame> frame(RVideoFrame::createWithData(kFormat, 16, bytes, 0, ConstructionCopy));
    frame->addParameter("name", value);
    // A frame claiming more bytes than its block holds: copying it fails to allocate before
    // it reads anything, after the parameters have been copied.
    RPtr<RAudioFrame> claims(
        RAudioFrame::createWithData(kFormat, kHuge, pattern(16), 0, 0, ConstructionAdopt));
    claims->addParameter("name", value);

    cmtest::AddressSpaceLimit limit(256u << 20);
    expectAllocationError([] { RVideoFrame::create(kHuge); }, "RFrame::RFrame(unsigned int)");
    expectAllocationError(
        [&] { RTextFrame::createWithData(frame.addr(), kFormat, kHuge, bytes, ConstructionCopy); },
        "RFrame::initWithData");
    expectAllocationError([&] { claims->copy(); }, "RFrame::RFrame(const ");
    EXPECT_EQ(value->retain_count(), 3);  // the test's and the two frames'

    // A failed growth keeps the old size; the capacity already says the new one.
    expectAllocationError([&] { frame->setData(kHuge, bytes, ConstructionCopy); },
                          "RFrame::setData");
    EXPECT_EQ(frame->getSize(), 16u);
    EXPECT_EQ(frame->getCapacity(), kHuge);
    EXPECT_EQ(frame->getData(), nullptr);
}

TEST(FrameTest, ParameterReplacementReleasesTheOldValue) {
    const int baseline = Tracked::live().load();
    {
        RPtr<RVideoFrame> frame(RVideoFrame::create(0));
        frame->addParameter("gain", new Tracked(1));
        // Names are compared by their text, not their address.
        const std::string sameName = "gain";
        frame->addParameter(sameName.c_str(), RPtr<zrbase::object_refcount>(new Tracked(2)));
        EXPECT_EQ(Tracked::live().load(), baseline + 1);
        EXPECT_EQ(frame->getParameterCount(), 1);
        EXPECT_EQ(dynamic_cast<const Tracked&>(*frame->getParameter("gain")).value(), 2);

        // A null value still makes an entry; absent and null names find nothing.
        frame->addParameter("empty", nullptr);
        EXPECT_EQ(frame->getParameterCount("empty"), 1);
        EXPECT_FALSE(frame->getParameter("empty"));
        EXPECT_FALSE(frame->getParameter("absent"));
        frame->addParameter(nullptr, RPtr<zrbase::object_refcount>(new Tracked(3)));
        EXPECT_EQ(frame->getParameterCount(), 2);
        frame->removeParameter("gain");
        EXPECT_EQ(Tracked::live().load(), baseline);
        frame->addParameter("kept", new Tracked(4));
    }
    EXPECT_EQ(Tracked::live().load(), baseline);
}

TEST(FrameTest, CopiesShareParametersButNotData) {
    RPtr<Tracked> value(new Tracked());
    unsigned char bytes[4] = {1, 2, 3, 4};
    RPtr<RVideoFrame> source(RVideoFrame::create(100));
    source->setData(4, bytes, ConstructionCopy);
    source->setAuxTime(9.0);
    source->setVideoValue2(77);
    source->setTimecode(zrbase::timecode(zrbase::timecode::mode_25, 1, 2, 3, 4, 0));
    source->addParameter("p", value);

    RPtr<RVideoFrame> copy(source->copy());
    EXPECT_EQ(copy->getParameter("p").addr(), value.addr());
    EXPECT_NE(copy->getData(), source->getData());
    EXPECT_EQ(copy->getCapacity(), 4u);  // just large enough for the data
    EXPECT_EQ(copy->getAuxTime(), 9.0);
    EXPECT_EQ(copy->getTimecode().total_frames(), source->getTimecode().total_frames());
    copy->getData()[0] = 0;
    copy->addParameter("q", value);
    EXPECT_EQ(source->getData()[0], 1);
    EXPECT_EQ(source->getParameterCount(), 1);
    RPtr<RAudioFrame> roomy(RAudioFrame::create(100));
    EXPECT_EQ(RPtr<RAudioFrame>(roomy->copy())->getData(), nullptr);

    // Derived frames keep number, times and parameters; video frames also their second
    // value and timecode, audio frames none of their values.
    source->setFrameNumber(9);
    RPtr<RVideoFrame> derived(
        RVideoFrame::createWithData(source.addr(), fourcc("yuv2"), 2, bytes, 33, ConstructionCopy));
    EXPECT_EQ(derived->getVideoValue(), 33u);
    EXPECT_EQ(derived->getVideoValue2(), 77u);
    EXPECT_EQ(derived->getTimecode().total_frames(), source->getTimecode().total_frames());
    EXPECT_EQ(derived->getFrameNumber(), 9u);
    EXPECT_EQ(derived->getAuxTime(), 9.0);
    EXPECT_EQ(derived->getParameter("p").addr(), value.addr());
    RPtr<RAudioFrame> audio(
        RAudioFrame::createWithData(kFormat, 4, bytes, 100, 200, ConstructionCopy));
    RPtr<RAudioFrame> derivedAudio(
        RAudioFrame::createWithData(audio.addr(), kFormat, 4, bytes, 1, 2, ConstructionCopy));
    EXPECT_EQ(derivedAudio->getAudioValue1() + derivedAudio->getAudioValue2(), 3u);

    RPtr<RTextFrame> text(RTextFrame::createWithFrame(source.addr()));
    EXPECT_EQ(text->getData()[3], 4);
    EXPECT_EQ(text->getParameter("p").addr(), value.addr());
    EXPECT_FALSE(RPtr<RTextFrame>(RTextFrame::createWithFrame(nullptr)));
}

// Frames are made on one thread and released on another, as they are after crossing a
// queue; then four readers copy one shared frame at once. The sanitizers check the reference
// counts and the leak checker that every frame and parameter is gone.
TEST(FrameTest, FramesMayBeCopiedAndReleasedOnOtherThreads) {
    const int baseline = Tracked::live().load();
    std::vector<RPtr<RFrame>> made;
    std::thread producer([&made] {
        for (int i = 0; i < 200; ++i) {
            made.emplace_back(
                RVideoFrame::createWithData(kFormat, 64, pattern(64), 0, ConstructionAdopt));
            made.back()->addParameter("p", new Tracked(i));
        }
    });
    producer.join();
    std::thread([frames = std::move(made)]() mutable { frames.clear(); }).join();
    EXPECT_EQ(Tracked::live().load(), baseline);

    RPtr<RFrame> published(
        RAudioFrame::createWithData(kFormat, 188, pattern(188), 0, 0, ConstructionAdopt));
    published->addParameter("p", new Tracked());
    const RPtr<const RFrame> shared(published);
    std::atomic<int> intact{0};
    cmtest::runConcurrently(4, [&](int) {
        for (int i = 0; i < 100; ++i) {
            RPtr<RFrame> copy(shared->copy());
            intact += holdsPattern(*copy, 188) && copy->getParameter("p");
        }
    });
    EXPECT_EQ(intact.load(), 400);
}

// Several threads make, copy and release large frames of many sizes at once, so that blocks
// freed by one thread are handed to frames of another: no block may end up in two frames,
// and every block must still hold its capacity plus the slack.
TEST(FrameTest, LargeBlocksPassBetweenThreadsIntact) {
    std::atomic<int> intact{0};
    cmtest::runConcurrently(4, [&](int thread) {
        for (int i = 0; i < 60; ++i) {
            const unsigned int size = (64u << 10) + static_cast<unsigned int>(i * 40009 + thread);
            RPtr<RFrame> frame(
                RVideoFrame::createWithData(kFormat, size, pattern(size), 0, ConstructionAdopt));
            RPtr<RFrame> copy(frame->copy());
            frame = nullptr;
            expectSlack(*copy);
            RPtr<RFrame> again(RVideoFrame::create(size));
            again->setData(size, copy->getData(), ConstructionCopy);
            copy = nullptr;
            intact += holdsPattern(*again, size);
        }
    });
    EXPECT_EQ(intact.load(), 240);
    // Small frames keep small blocks: recycling them as large ones would waste memory.
    RPtr<RFrame> small(RVideoFrame::create(188));
    EXPECT_LT(malloc_usable_size(small->getData()), 4096u);
#if defined(__SANITIZE_ADDRESS__) || CM_HAS_ASAN
    // A block kept for reuse stays unusable until a new frame takes it, as after free().
    RPtr<RFrame> frame(RVideoFrame::create(1u << 20));
    const unsigned char* block = frame->getData();
    frame = nullptr;
    EXPECT_TRUE(__asan_address_is_poisoned(block));
#endif
}

// A fresh large block arrives with its pages in place, so that filling the first frames of
// a stream of pictures does not trap into the kernel for every 4 KiB.
TEST(FrameTest, FreshLargeBlockIsFilledWithoutPageFaults) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || CM_HAS_SANITIZER_SHADOW
    GTEST_SKIP() << "the sanitizer's shadow memory faults in on every write";
#else
    // 1.25 MiB: a block class nothing else in this process has released into the pool.
    constexpr unsigned int kSize = 5u << 18;
    const auto minorFaultsOfThisThread = [] {
        rusage usage{};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_minflt;
    };
    RPtr<RFrame> frame(RVideoFrame::create(kSize));
    const long before = minorFaultsOfThisThread();
    std::memset(frame->getData(), 0x5A, kSize);
    EXPECT_LT(minorFaultsOfThisThread() - before, 8) << "of " << kSize / 4096 << " pages";
#endif
}

TEST(DescriptionTest, CopiesKeepFieldsAndShareParameters) {
    RPtr<Tracked> value(new Tracked());
    RPtr<RVideoDescription> video(new RVideoDescription());
    video->mFrameRate = 25.0;
    video->addParameter("p", value);
    RPtr<RQDescription> generic(video->copy());
    auto* copy = dynamic_cast<RVideoDescription*>(generic.addr());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->mFrameRate, 25.0);
    EXPECT_EQ(copy->getParameter("p").addr(), value.addr());

    RPtr<RAudioDescription> audio(new RAudioDescription());
    audio->mSampleRate = 48000.0;
    EXPECT_EQ(RPtr<RAudioDescription>(audio->copy())->mSampleRate, 48000.0);
    RPtr<RTextDescription> text(new RTextDescription());
    text->mTextValue = 0x0123456789ABCDEFull;
    EXPECT_EQ(RPtr<RTextDescription>(text->copy())->mTextValue, 0x0123456789ABCDEFull);
}
