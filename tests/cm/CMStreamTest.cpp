#include <cm/CMStream.h>

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
using Bytes = std::vector<unsigned char>;
using Seeks = std::vector<std::pair<long long, int>>;

// An in-memory stream that records the calls made on it. Scripted read results, while
// there are any, replace the natural ones (a positive one reads that many bytes).
class RecordingStream : public RStream {
public:
    explicit RecordingStream(Bytes content, long long position = 0)
        : mContent(std::move(content)), mPosition(position) {}
    int open() override { return 0; }
    int close() override { return 0; }
    long long read(unsigned char* buffer, long long length) override {
        long long n = std::min<long long>(length, mContent.size() - mPosition);
        if (!mScript.empty()) {
            n = mScript.front();
            mScript.erase(mScript.begin());
        }
        std::copy_n(mContent.begin() + mPosition, std::max(n, 0LL), buffer);
        mPosition += std::max(n, 0LL);
        mReads.push_back(n);
        return n;
    }
    long long write(unsigned char* buffer, long long length) override {
        mWrites.push_back(length);
        mContent.insert(mContent.end(), buffer, buffer + std::max(length, 0LL));
        return length;
    }
    long long lseek(long long offset, unsigned char whence) override {
        mSeeks.emplace_back(offset, whence);
        return mPosition = whence == 0 ? offset : mPosition + offset;
    }
    long long size() override { return mContent.size(); }
    int getType() override { return 0; }
    ZR::RString getURI() override { return ZR::RString("memory:"); }

    Bytes mContent;
    long long mPosition;
    std::vector<long long> mScript, mReads, mWrites;
    Seeks mSeeks;
};

Bytes bytes(size_t size) {
    Bytes content(size);
    for (size_t i = 0; i < size; ++i) {
        content[i] = static_cast<unsigned char>(i * 7 + i / 256);
    }
    return content;
}

TEST(CMStreamTest, FactoryPicksStreamByUriKind) {
    cmtest::TempDir dir;
    const unsigned int create = O_RDWR | O_CREAT;
    const auto file = RStream::getStream(RURI(dir.file("a").c_str()), create, 0);
    EXPECT_EQ(file->getType(), 1);
    EXPECT_EQ(file->open(), 0);  // handed out closed: the file appears on open
    EXPECT_EQ(RStream::getStream(RURI(("file://" + dir.file("b")).c_str()), create, 1)->getType(),
              1);
    EXPECT_EQ(RStream::getStream(RURI("firewire://0"), create, 0)->getType(), 5);
    EXPECT_FALSE(RStream::getStream(RURI("https://host/a.mov"), create, 0));
    EXPECT_FALSE(RStream::getStream(RURI("x-custom:thing"), 0, 0));  // no reader plug-in
}

TEST(CMStreamTest, PlusEqualsReadsSequentiallyAndStopsOnlyAtZero) {
    RPtr<RecordingStream> source(new RecordingStream(bytes(150000), 99));
    RPtr<RecordingStream> sink(new RecordingStream({}));
    *sink += *source;
    EXPECT_EQ(source->mSeeks, (Seeks{{0, 1}, {0, 0}, {99, 0}}));
    EXPECT_TRUE(sink->mContent == bytes(150000));

    // A failed read does not end the copy: it reaches write() as a negative length,
    // which a file stream refuses without touching the buffer.
    source->mScript = {4, -1, 6, 0};
    sink->mWrites.clear();
    *sink += *source;
    EXPECT_EQ(sink->mWrites, (std::vector<long long>{4, -1, 6}));
    source->mScript = {-1, 0};
    const auto file = RStream::getTempStream();
    *file += *source;
    EXPECT_EQ(file->size(), 0);
}

}  // namespace
