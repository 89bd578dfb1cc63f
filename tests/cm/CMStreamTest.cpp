#include <cm/CMStream.h>

#include <cm/CMFileStream.h>

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <algorithm>
#include <utility>
#include <vector>

namespace {

using ZR::RPtr;
using ZR::RURI;
using ZR::CM::RStream;

// An in-memory stream that records what is done to it. Scripted read results, when
// given, are returned (a positive one as that many bytes) before the content is read.
class RecordingStream : public RStream {
public:
    explicit RecordingStream(std::vector<unsigned char> content) : mContent(std::move(content)) {}

    int open() override { return 0; }
    int close() override { return 0; }
    long long read(unsigned char* buffer, long long length) override {
        long long n =
            std::min<long long>(length, static_cast<long long>(mContent.size()) - mPosition);
        if (!mScript.empty()) {
            n = mScript.front();
            mScript.erase(mScript.begin());
        }
        if (n > 0) {
            std::copy_n(mContent.begin() + mPosition, n, buffer);
            mPosition += n;
        }
        mReads.push_back(n);
        return n;
    }
    long long write(unsigned char* buffer, long long length) override {
        mWrites.push_back(length);
        if (length > 0) {
            mContent.insert(mContent.end(), buffer, buffer + length);
        }
        return length;
    }
    long long lseek(long long offset, unsigned char whence) override {
        mSeeks.emplace_back(offset, whence);
        mPosition = whence == 0 ? offset : mPosition + offset;
        return mPosition;
    }
    long long size() override { return static_cast<long long>(mContent.size()); }
    int getType() override { return 0; }
    ZR::RString getURI() override { return ZR::RString("memory:"); }

    std::vector<unsigned char> mContent;
    long long mPosition = 0;
    std::vector<long long> mScript;
    std::vector<long long> mReads;
    std::vector<long long> mWrites;
    std::vector<std::pair<long long, int>> mSeeks;
};

std::vector<unsigned char> bytes(size_t size) {
    std::vector<unsigned char> content(size);
    for (size_t i = 0; i < size; ++i) {
        content[i] = static_cast<unsigned char>(i * 7 + i / 256);
    }
    return content;
}

std::vector<unsigned char> contentOf(RStream& stream) {
    std::vector<unsigned char> all(static_cast<size_t>(stream.size()));
    stream.lseek(0, 0);
    EXPECT_EQ(stream.read(all.data(), static_cast<long long>(all.size())),
              static_cast<long long>(all.size()));
    return all;
}

TEST(CMStreamTest, FactoryPicksStreamByUriKind) {
    cmtest::TempDir dir;
    const unsigned int create = O_RDWR | O_CREAT;
    EXPECT_EQ(RStream::getStream(RURI(dir.file("a").c_str()), create, 0)->getType(), 1);
    EXPECT_EQ(RStream::getStream(RURI(("file://" + dir.file("b")).c_str()), create, 1)->getType(),
              1);
    EXPECT_EQ(RStream::getStream(RURI("firewire://0"), create, 0)->getType(), 5);
    for (const char* other : {"https://host/a.mov", "rtmp://h/app", "x-custom:thing"}) {
        EXPECT_FALSE(RStream::getStream(RURI(other), create, 0)) << other;
        EXPECT_FALSE(RStream::getStream(RURI(other), 0, 0)) << other;  // no reader plug-ins
    }
    const auto file = RStream::getStream(RURI(dir.file("a").c_str()), create, 0);
    EXPECT_EQ(file->open(), 0);  // returned closed; creating happens on open
}

TEST(CMStreamTest, AppendSeeksSourceBeforeEveryBlockAndRestoresIt) {
    RPtr<RecordingStream> source(new RecordingStream(bytes(150000)));
    source->mPosition = 1234;
    const auto destination = RStream::getTempStream();
    unsigned char head[] = "HEAD";
    destination->write(head, 4);  // the copy goes to the current position

    EXPECT_EQ(destination->append(source.addr()), 1234);
    EXPECT_EQ(source->mPosition, 1234);
    EXPECT_EQ(source->mReads, (std::vector<long long>{65536, 65536, 18928, 0}));
    const std::vector<std::pair<long long, int>> seeks = {
        {0, 1}, {0, 0}, {0, 1}, {0, 0}, {65536, 0}, {131072, 0}, {150000, 0}, {1234, 0}};
    EXPECT_EQ(source->mSeeks, seeks);
    auto expected = bytes(150000);
    expected.insert(expected.begin(), head, head + 4);
    EXPECT_TRUE(contentOf(*destination) == expected);

    RPtr<RecordingStream> empty(new RecordingStream({}));
    RPtr<RecordingStream> sink(new RecordingStream({}));
    EXPECT_EQ(sink->append(empty.addr()), 0);
    EXPECT_TRUE(sink->mWrites.empty());

    RPtr<RecordingStream> failing(new RecordingStream(bytes(10)));
    failing->mScript = {-1};
    EXPECT_EQ(sink->append(failing.addr()), 0);
    EXPECT_TRUE(sink->mWrites.empty());  // a failed read ends append
}

TEST(CMStreamTest, PlusEqualsReadsSequentiallyAndStopsOnlyAtZero) {
    RPtr<RecordingStream> source(new RecordingStream(bytes(150000)));
    source->mPosition = 99;
    const auto destination = RStream::getTempStream();
    *destination += *source;
    EXPECT_EQ(source->mPosition, 99);
    EXPECT_EQ(source->mSeeks, (std::vector<std::pair<long long, int>>{{0, 1}, {0, 0}, {99, 0}}));
    EXPECT_TRUE(contentOf(*destination) == bytes(150000));

    // A failed read does not end the copy: it reaches write() as a negative length.
    RPtr<RecordingStream> flaky(new RecordingStream(bytes(10)));
    flaky->mScript = {4, -1, 6, 0};
    RPtr<RecordingStream> sink(new RecordingStream({}));
    *sink += *flaky;
    EXPECT_EQ(sink->mWrites, (std::vector<long long>{4, -1, 6}));
    EXPECT_TRUE(sink->mContent == bytes(10));

    // A file stream given that negative length fails the write and touches nothing.
    flaky->mScript = {-1, 0};
    const auto file = RStream::getTempStream();
    *file += *flaky;
    EXPECT_EQ(file->size(), 0);
}

}  // namespace
