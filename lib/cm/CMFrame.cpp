#include <cm/CMFrame.h>

#include <zr/CException.h>

#include "CMFrameBlockPool.h"

#include <cstring>

namespace ZR {
namespace CM {

namespace {

const char kFile[] = "lib/cm/CMFrame";
const char kAllocationError[] = "Memory allocation error.";

// Every block a frame allocates carries this much slack behind its capacity.
constexpr std::size_t kBlockSlack = 64;

}  // namespace

// ---------------------------------------------------------------------------------------------
// CParameterMap

void CParameterMap::addParameter(const char* name, const zrbase::object_refcount* value) {
    if (!name) {
        return;
    }
    // The RPtr assignment retains the new value before it releases the old one.
    mParameters[name] = value;
}

void CParameterMap::removeParameter(const char* name) {
    if (name) {
        mParameters.erase(name);
    }
}

RPtr<const zrbase::object_refcount> CParameterMap::getParameter(const char* name) const {
    if (!name) {
        return nullptr;
    }
    const auto found = mParameters.find(name);
    return found == mParameters.end() ? nullptr : found->second;
}

int CParameterMap::getParameterCount(const char* name) const {
    return name && mParameters.count(name) ? 1 : 0;
}

// ---------------------------------------------------------------------------------------------
// RFrame

RFrame::RFrame(unsigned int capacity) : mCapacity(capacity) {
    if (capacity == 0) {
        return;
    }
    mData = allocateBlock(capacity);
    if (!mData) {
        ZR_THROW(kFile, kAllocationError);
    }
}

RFrame::RFrame(unsigned int format, unsigned int size, unsigned char* data, ConstructionFlags flags)
    : mDataFormat(format), mSize(size), mCapacity(size) {
    initWithData(data, flags);
}

RFrame::RFrame(unsigned int frameNumber, CTimeStamp start, CTimeStamp duration, unsigned int format,
               unsigned int size, unsigned char* data, ConstructionFlags flags)
    : mFrameNumber(frameNumber),
      mStartTime(start),
      mDuration(duration),
      mDataFormat(format),
      mSize(size),
      mCapacity(size) {
    initWithData(data, flags);
}

RFrame::RFrame(const RFrame* source, unsigned int format, unsigned int size, unsigned char* data,
               ConstructionFlags flags)
    : RFrame(format, size, data, flags) {
    if (!source) {
        return;
    }
    CParameterMap::operator=(*source);
    mFrameNumber = source->mFrameNumber;
    mStartTime = source->mStartTime;
    mAuxTime = source->mAuxTime;
    mDuration = source->mDuration;
}

RFrame::RFrame(const RFrame& other)
    : RQNode(other),
      CParameterMap(other),
      mFrameNumber(other.mFrameNumber),
      mStartTime(other.mStartTime),
      mAuxTime(other.mAuxTime),
      mDuration(other.mDuration),
      mDataFormat(other.mDataFormat),
      mSize(other.mSize),
      mCapacity(other.mSize) {
    if (mSize == 0) {
        return;
    }
    mData = allocateBlock(mCapacity);
    if (!mData) {
        ZR_THROW(kFile, kAllocationError);
    }
    copyInto(mData.get(), other.mData.get(), mSize, ConstructionCopy);
}

RFrame::~RFrame() = default;

void RFrame::FreeBlock::operator()(unsigned char* block) const noexcept {
    FrameBlockPool::release(block);
}

RFrame::Block RFrame::allocateBlock(unsigned int capacity) noexcept {
    return Block(FrameBlockPool::allocate(std::size_t{capacity} + kBlockSlack));
}

void RFrame::copyInto(unsigned char* block, unsigned char* source, unsigned int n,
                      ConstructionFlags flags) noexcept {
    // memmove: a caller may hand back bytes of this very block.
    if (n > 0 && source) {
        std::memmove(block, source, n);
    } else if (n > 0) {
        std::memset(block, 0, n);
    }
    if (flags & ConstructionFreeSource) {
        FrameBlockPool::release(source);
    }
}

void RFrame::adopt(unsigned char* data, unsigned int size) noexcept {
    if (data != mData.get()) {
        mData.reset(data);
    }
    // Adopting nothing leaves an empty frame rather than a size without bytes.
    mCapacity = mSize = data ? size : 0;
}

void RFrame::initWithData(unsigned char* data, ConstructionFlags flags) {
    if (!(flags & ConstructionCopy)) {
        // The caller's block becomes the frame's as it is: the size and capacity the frame
        // was given stand. Only a null block empties the frame.
        if (!data) {
            adopt(nullptr, 0);
        } else if (data != mData.get()) {
            mData.reset(data);
        }
        return;
    }
    // The old block goes only after the copy: `data` may lie in it.
    Block block = allocateBlock(mCapacity);
    if (!block) {
        ZR_THROW(kFile, kAllocationError);
    }
    copyInto(block.get(), data, mSize, flags);
    mData = std::move(block);
}

void RFrame::setData(unsigned int size, unsigned char* data, ConstructionFlags flags) {
    if (!(flags & ConstructionCopy)) {
        adopt(data, size);
        return;
    }
    if (size > mCapacity) {
        mData.reset();
        mCapacity = size;
        mData = allocateBlock(size);
    }
    // Also reached by a frame that never had a block: even an empty copy needs one.
    if (!mData) {
        ZR_THROW(kFile, kAllocationError);
    }
    copyInto(mData.get(), data, size, flags);
    mSize = size;
}

// ---------------------------------------------------------------------------------------------
// RVideoFrame

RVideoFrame* RVideoFrame::create(unsigned int capacity) {
    return new RVideoFrame(capacity);
}

RVideoFrame* RVideoFrame::createWithData(unsigned int format, unsigned int size,
                                         unsigned char* data, unsigned int value,
                                         ConstructionFlags flags) {
    return withValue(new RVideoFrame(format, size, data, flags), value);
}

RVideoFrame* RVideoFrame::createWithData(unsigned int frameNumber, CTimeStamp start,
                                         CTimeStamp duration, unsigned int format,
                                         unsigned int size, unsigned char* data, unsigned int value,
                                         ConstructionFlags flags) {
    return withValue(new RVideoFrame(frameNumber, start, duration, format, size, data, flags),
                     value);
}

RVideoFrame* RVideoFrame::createWithData(const RVideoFrame* source, unsigned int format,
                                         unsigned int size, unsigned char* data, unsigned int value,
                                         ConstructionFlags flags) {
    RVideoFrame* frame = withValue(new RVideoFrame(source, format, size, data, flags), value);
    if (source) {
        frame->mVideoValue2 = source->mVideoValue2;
        frame->mTimecode = source->mTimecode;
    }
    return frame;
}

RVideoFrame* RVideoFrame::withValue(RVideoFrame* frame, unsigned int value) noexcept {
    frame->mVideoValue = value;
    return frame;
}

RVideoFrame* RVideoFrame::copy() const {
    return new RVideoFrame(*this);
}

// ---------------------------------------------------------------------------------------------
// RAudioFrame

RAudioFrame* RAudioFrame::create(unsigned int capacity) {
    return new RAudioFrame(capacity);
}

RAudioFrame* RAudioFrame::createWithData(unsigned int format, unsigned int size,
                                         unsigned char* data, unsigned int value1,
                                         unsigned int value2, ConstructionFlags flags) {
    return withValues(new RAudioFrame(format, size, data, flags), value1, value2);
}

RAudioFrame* RAudioFrame::createWithData(unsigned int frameNumber, CTimeStamp start,
                                         CTimeStamp duration, unsigned int format,
                                         unsigned int size, unsigned char* data,
                                         unsigned int value1, unsigned int value2,
                                         ConstructionFlags flags) {
    return withValues(new RAudioFrame(frameNumber, start, duration, format, size, data, flags),
                      value1, value2);
}

RAudioFrame* RAudioFrame::createWithData(const RAudioFrame* source, unsigned int format,
                                         unsigned int size, unsigned char* data,
                                         unsigned int value1, unsigned int value2,
                                         ConstructionFlags flags) {
    return withValues(new RAudioFrame(source, format, size, data, flags), value1, value2);
}

RAudioFrame* RAudioFrame::withValues(RAudioFrame* frame, unsigned int value1,
                                     unsigned int value2) noexcept {
    frame->mAudioValue1 = value1;
    frame->mAudioValue2 = value2;
    return frame;
}

RAudioFrame* RAudioFrame::copy() const {
    return new RAudioFrame(*this);
}

// ---------------------------------------------------------------------------------------------
// RTextFrame

RTextFrame* RTextFrame::create(unsigned int capacity) {
    return new RTextFrame(capacity);
}

RTextFrame* RTextFrame::createWithFrame(const RFrame* frame) {
    return frame ? new RTextFrame(*frame) : nullptr;
}

RTextFrame* RTextFrame::createWithData(unsigned int format, unsigned int size, unsigned char* data,
                                       ConstructionFlags flags) {
    return new RTextFrame(format, size, data, flags);
}

RTextFrame* RTextFrame::createWithData(unsigned int frameNumber, CTimeStamp start,
                                       CTimeStamp duration, unsigned int format, unsigned int size,
                                       unsigned char* data, ConstructionFlags flags) {
    return new RTextFrame(frameNumber, start, duration, format, size, data, flags);
}

RTextFrame* RTextFrame::createWithData(const RFrame* source, unsigned int format, unsigned int size,
                                       unsigned char* data, ConstructionFlags flags) {
    return new RTextFrame(source, format, size, data, flags);
}

RTextFrame* RTextFrame::copy() const {
    return new RTextFrame(*this);
}

// ---------------------------------------------------------------------------------------------
// Descriptions

RDescription::~RDescription() = default;

RVideoDescription* RVideoDescription::copy() const {
    return new RVideoDescription(*this);
}

RAudioDescription* RAudioDescription::copy() const {
    return new RAudioDescription(*this);
}

RTextDescription* RTextDescription::copy() const {
    return new RTextDescription(*this);
}

}  // namespace CM
}  // namespace ZR
