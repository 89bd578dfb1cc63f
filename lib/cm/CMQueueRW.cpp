#include <cm/CMQueueRW.h>

#include <cm/CMComponent.h>
#include <zr/CException.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

namespace ZR {
namespace CM {

namespace {

const char kFile[] = "lib/cm/CMQueueRW";

// Whole samples in a byte count. A description without a sample size counts none rather
// than dividing by zero.
unsigned int samplesIn(unsigned int bytes, unsigned int bytesPerSample) {
    return bytesPerSample ? bytes / bytesPerSample : 0;
}

// Waits on one of the queue's conditions, keeping its waiter count.
void waitOn(CCondition& condition, int& waiters, CMutex& mutex) {
    ++waiters;
    condition.wait(mutex);
    --waiters;
}

// Releases a held mutex for a scope and takes it again on the way out, also when an
// exception leaves the scope, so that the caller's lock guard still owns it.
class ScopedUnlock {
public:
    explicit ScopedUnlock(CMutex& mutex) : mMutex(mutex) { mMutex.unlock(); }
    ~ScopedUnlock() { mMutex.lock(); }
    ScopedUnlock(const ScopedUnlock&) = delete;
    ScopedUnlock& operator=(const ScopedUnlock&) = delete;

private:
    CMutex& mMutex;
};

// A broadcast held back until the queue mutex is released: declared before the lock
// guard, it goes out after the unlock. The threads it wakes then find the mutex free,
// where woken under it they would go back to sleep on it at once and need a second
// wake-up. They were counted as waiting under the mutex, so they are inside the condition
// wait already and cannot miss it.
class DeferredBroadcast {
public:
    DeferredBroadcast() = default;
    DeferredBroadcast(const DeferredBroadcast&) = delete;
    DeferredBroadcast& operator=(const DeferredBroadcast&) = delete;
    ~DeferredBroadcast() {
        if (mCondition) {
            mCondition->broadcast();
        }
    }
    void arm(CCondition& condition) noexcept { mCondition = &condition; }

private:
    CCondition* mCondition = nullptr;
};

}  // namespace

// RQueueRW

RQueueRW::RQueueRW(RQueue* queue, RComponent* component) noexcept
    : mQueue(queue), mComponent(component) {
    mQueue->retain();
    if (mComponent) {
        mComponent->retain();
    }
}

RQueueRW::~RQueueRW() {
    if (mComponent) {
        mComponent->release();
    }
    mQueue->release();
}

// The handlers run with the queue mutex released. A "rstr" handler clears every output
// queue of its component under that queue's own mutex; holding this one through it would
// nest queue mutexes in whatever order the handler meets them, and a component with two
// outputs, reset once from a wait on each, would take them in both orders. The count is
// looked at again under the mutex after the handlers, so a notification posted meanwhile
// is either handled here or wakes the wait that follows.
void RQueueRW::checkNotifications() {
    while (mComponent && mComponent->hasPendingNotifications()) {
        const ScopedUnlock unlocked(mQueue->mMutex);
        mComponent->handleNotifications();
    }
}

bool RQueueRW::mayProceedLocked() {
    checkNotifications();
    if (!mComponent) {
        return true;
    }
    if (mComponent->isAborted()) {
        throw CThreadAbort();  // unwinding releases the queue mutex
    }
    return !mComponent->isPaused();
}

bool RQueueRW::readersToWakeLocked() const noexcept {
    const RQueue& q = *mQueue;
    return (q.mHighLimit == 0 || q.mNodeCount >= q.mHighLimit) && q.mReadersWaiting > 0;
}

// "No limits" is decided by the high limit here too: a low limit alone has no effect.
bool RQueueRW::writersToWakeLocked() const noexcept {
    const RQueue& q = *mQueue;
    return (q.mHighLimit == 0 || q.mNodeCount <= q.mLowLimit) && q.mWritersWaiting > 0;
}

void RQueueRW::signalHighLimit() noexcept {
    if (readersToWakeLocked()) {
        mQueue->mDataCondition.broadcast();
    }
}

void RQueueRW::signalLowLimit() noexcept {
    if (writersToWakeLocked()) {
        mQueue->mRoomCondition.broadcast();
    }
}

void RQueueRW::registerWakeCondition(CCondition& condition) {
    if (mComponent) {
        mRegistered = mComponent->insertWakeCondition(&condition, mQueue);
    }
}

void RQueueRW::unregisterWakeCondition(CCondition& condition) noexcept {
    if (mRegistered) {
        mComponent->removeWakeCondition(&condition);
    }
}

// RQFrameWriter

RQFrameWriter::RQFrameWriter(RQueue* queue, RComponent* component) : RQueueRW(queue, component) {
    registerWakeCondition(mQueue->mRoomCondition);
}

RQFrameWriter::~RQFrameWriter() {
    unregisterWakeCondition(mQueue->mRoomCondition);
}

void RQFrameWriter::putP(const RFrame* frame) {
    RQueue& q = *mQueue;
    DeferredBroadcast wake;
    std::lock_guard<CMutex> lock(q.mMutex);
    while (!mayProceedLocked() || (q.mHighLimit != 0 && q.mNodeCount >= q.mHighLimit)) {
        waitOn(q.mRoomCondition, q.mWritersWaiting, q.mMutex);
    }
    // The queue shares the frame with its readers; nobody writes to it any more.
    q.put(const_cast<RFrame*>(frame));
    if (readersToWakeLocked()) {
        wake.arm(q.mDataCondition);
    }
}

void RQFrameWriter::end() {
    mQueue->eoq();
}

void RQFrameWriter::clear() {
    std::lock_guard<CMutex> lock(mQueue->mMutex);
    mQueue->clear();
}

void RQFrameWriter::setDescriptionP(const RDescription* description) {
    RQueue& q = *mQueue;
    std::lock_guard<CMutex> lock(q.mMutex);
    q.setDescription(description);
    if (q.mReadersWaiting > 0) {
        q.mDataCondition.broadcast();
    }
}

const RDescription* RQFrameWriter::getDescriptionP() const {
    std::lock_guard<CMutex> lock(mQueue->mMutex);
    return static_cast<const RDescription*>(mQueue->mDescription.addr());
}

// RQFrameReader

RQFrameReader::RQFrameReader(RQueue* queue, RComponent* component) : RQueueRW(queue, component) {
    {
        std::lock_guard<CMutex> lock(mQueue->mMutex);
        mQueue->registerReader();
        mGeneration = mQueue->mGeneration;
    }
    registerWakeCondition(mQueue->mDataCondition);
}

RQFrameReader::~RQFrameReader() {
    {
        std::lock_guard<CMutex> lock(mQueue->mMutex);
        forgetClearedPositionLocked();
        mQueue->unregisterReader(mCurrent);
    }
    unregisterWakeCondition(mQueue->mDataCondition);
}

void RQFrameReader::forgetClearedPositionLocked() noexcept {
    if (mGeneration == mQueue->mGeneration) {
        return;
    }
    mGeneration = mQueue->mGeneration;
    mPastEnd = false;  // the nodes it had passed went with the clear
    // A reader that held nothing (it had not started, or had read to the end) lost nothing
    // to the clear and keeps its count. One that held a node holds a released one now: it
    // starts again at the head and counts from zero, as the cleared queue does.
    if (mCurrent) {
        mCurrent = nullptr;
        mFramesRead.store(0, std::memory_order_relaxed);
    }
}

RQNode* RQFrameReader::nextNode() {
    return step(nullptr);
}

RPtr<RFrame> RQFrameReader::nextFrame() {
    // The frame is held while it is copied outside the lock: a clear() of the queue by
    // another component may drop the queue's own reference meanwhile.
    RPtr<const RFrame> held;
    step(&held);
    if (!held) {
        return RPtr<RFrame>();
    }
    return held->copy();
}

RPtr<const RFrame> RQFrameReader::nextSharedFrame() {
    RPtr<const RFrame> held;
    step(&held);
    return held;
}

RQNode* RQFrameReader::step(RPtr<const RFrame>* hold) {
    RQueue& q = *mQueue;
    // The node this reader leaves behind is held until the mutex is released: when the
    // queue drops it and no one else holds it, the frame is destroyed after the unlock
    // rather than inside the lock, where its destruction would hold up the writer.
    RPtr<const RQNode> left;
    DeferredBroadcast wake;
    std::lock_guard<CMutex> lock(q.mMutex);
    for (;;) {
        const bool mayProceed = mayProceedLocked();
        forgetClearedPositionLocked();
        if (mayProceed) {
            if (mCurrent && mCurrent->getNext()) {
                left = mCurrent;
                mCurrent = q.nextNode(mCurrent);
                break;
            }
            if (!mCurrent && q.mNodeCount != 0) {
                mCurrent = q.firstNode();
                break;
            }
            if (q.getEndOfQueue()) {
                // Past the last node: mark it read and hand out null.
                mPastEnd = mPastEnd || mCurrent;
                left = mCurrent;
                mCurrent = mCurrent ? q.nextNode(mCurrent) : q.firstNode();
                break;
            }
        }
        waitOn(q.mDataCondition, q.mReadersWaiting, q.mMutex);
    }
    if (mCurrent) {
        // Only this reader's thread changes the count: no read-modify-write needed.
        mFramesRead.store(mFramesRead.load(std::memory_order_relaxed) + 1,
                          std::memory_order_relaxed);
    }
    if (hold) {
        // Nodes in a queue are always frames.
        *hold = static_cast<const RFrame*>(mCurrent);
    }
    if (writersToWakeLocked()) {
        wake.arm(q.mRoomCondition);
    }
    return mCurrent;
}

const RDescription* RQFrameReader::getDescriptionP() {
    RQueue& q = *mQueue;
    std::lock_guard<CMutex> lock(q.mMutex);
    while (!mayProceedLocked() || !q.mDescription) {
        waitOn(q.mDataCondition, q.mReadersWaiting, q.mMutex);
    }
    return static_cast<const RDescription*>(q.mDescription.addr());
}

// The readers of one queue handle a "rstr" at different moments, and the writer clears
// the queue at yet another. A reader that went back to the head with its passes still
// counted would count the nodes it reads again twice, and drop a node that another reader
// still holds. So the passes are taken back here, under the mutex, unless a clear has
// already dropped them with the nodes.
void RQFrameReader::reset() noexcept {
    std::lock_guard<CMutex> lock(mQueue->mMutex);
    forgetClearedPositionLocked();
    // Past the end, every node left has been passed; a reader that is past the end of a
    // run the writer has since cleared passed none of the nodes now in the queue.
    if (mCurrent || mPastEnd) {
        mQueue->forgetPasses(mCurrent);
    }
    mFramesRead.store(0, std::memory_order_relaxed);
    mCurrent = nullptr;
    mPastEnd = false;
}

// RQSampleWriter

RQSampleWriter::RQSampleWriter(RQFrameWriter* writer, unsigned int samplesPerFrame) {
    initWithWriter(writer, samplesPerFrame);
}

RQSampleWriter::~RQSampleWriter() {
    std::free(mBuffer);
}

void RQSampleWriter::initWithWriter(RQFrameWriter* writer, unsigned int samplesPerFrame) {
    mWriter = writer;
    mSamplesPerFrame = samplesPerFrame;
    const auto* description = static_cast<const RAudioDescription*>(writer->getDescriptionP());
    if (description) {
        mDescription = description;
        initializeInternalData(description);
    }
}

void RQSampleWriter::setDescriptionP(const RAudioDescription* description) {
    initializeInternalData(description);
    mDescription = description;
    mWriter->setDescriptionP(description);
}

unsigned char* RQSampleWriter::allocateBuffer(unsigned int size) {
    auto* buffer = static_cast<unsigned char*>(std::malloc(size));
    if (!buffer) {
        ZR_THROW(kFile, CString("memory allocation error."));
    }
    return buffer;
}

void RQSampleWriter::initializeInternalData(const RAudioDescription* description) {
    const unsigned int bufferSize =
        description->mChannels * description->mBytesPerSample * mSamplesPerFrame;
    std::unique_ptr<unsigned char, void (*)(void*)> buffer(allocateBuffer(bufferSize), std::free);
    // Samples buffered under an earlier description are kept: they move into the new
    // buffer, or, when they would overrun it, go out first as a frame of their own.
    if (mFill > bufferSize) {
        emitPartial();
        ++mFrameCounter;
    }
    if (mFill > 0) {
        std::memcpy(buffer.get(), mBuffer, mFill);
    }
    std::free(mBuffer);
    mBuffer = buffer.release();
    mBufferSize = bufferSize;
    mFrameDuration = static_cast<double>(mSamplesPerFrame) / description->mSampleRate;
}

void RQSampleWriter::emitFull() {
    const CTimeStamp start = mStartTime + mFrameCounter * double(mFrameDuration);
    RPtr<const RFrame> frame(RAudioFrame::createWithData(mFrameCounter, start, mFrameDuration,
                                                         mDataFormat, mBufferSize, mBuffer, 0, 0,
                                                         ConstructionAdopt));
    mBuffer = nullptr;  // the frame owns it now
    mWriter->put(frame);
    ++mFrameCounter;
}

unsigned int RQSampleWriter::writeSamples(const unsigned char* data, unsigned int count) {
    if (!mDescription) {
        ZR_THROW(kFile, CString("writeSamples() before the description was set."));
    }
    if (!mBuffer) {
        // end() gave the buffer to the last frame; samples written after it start a new one.
        mBuffer = allocateBuffer(mBufferSize);
    }
    unsigned int remaining = mDescription->mBytesPerSample * count;
    unsigned int space = mBufferSize - mFill;
    if (remaining < space) {
        std::memcpy(mBuffer + mFill, data, remaining);
        mFill += remaining;
        return count;
    }
    unsigned char* to = mBuffer + mFill;
    for (;;) {
        std::memcpy(to, data, space);
        if (space >= remaining) {
            // A buffer filled exactly is kept: the next write or end() emits it.
            mFill += space;
            return count;
        }
        emitFull();
        mBuffer = allocateBuffer(mBufferSize);
        data += space;
        remaining -= space;
        mFill = 0;
        space = std::min(mBufferSize, remaining);
        to = mBuffer;
    }
}

void RQSampleWriter::emitPartial() {
    const double samples = samplesIn(mFill, mDescription->mBytesPerSample);
    const CTimeStamp duration = samples / mDescription->mSampleRate / mDescription->mChannels;
    const CTimeStamp start = mStartTime + mFrameCounter * double(mFrameDuration);
    RPtr<const RFrame> frame(RAudioFrame::createWithData(
        mFrameCounter, start, duration, mDataFormat, mFill, mBuffer, 0, 0, ConstructionAdopt));
    mBuffer = nullptr;  // the frame owns it now
    mFill = 0;
    mWriter->put(frame);
}

void RQSampleWriter::end() {
    if (mFill > 0) {
        emitPartial();
    } else {
        std::free(mBuffer);
        mBuffer = nullptr;
    }
    mWriter->end();
}

void RQSampleWriter::reset() {
    ZR_THROW(kFile, CString("NOT IMPLEMENTED!"));
}

// RQSampleReader

RQSampleReader::RQSampleReader(RQFrameReader* reader) {
    initWithReader(reader);
}

void RQSampleReader::initWithReader(RQFrameReader* reader) {
    mReader = reader;
    mDescription = static_cast<const RAudioDescription*>(reader->getDescriptionP());
    mCurrentFrame = reader->nextFrame();
    mOffset = 0;
    if (mCurrentFrame) {
        mDataFormat = mCurrentFrame->getDataFormat();
        mStartTime = mCurrentFrame->getStartTime();
    }
}

unsigned int RQSampleReader::readSamples(unsigned char* dst, unsigned int count) {
    if (!mCurrentFrame) {
        return 0;
    }
    const unsigned int bytesPerSample = mDescription->mBytesPerSample;
    unsigned int wanted = bytesPerSample * count;
    unsigned int available = mCurrentFrame->getSize() - mOffset;
    if (wanted < available) {
        std::memcpy(dst, mCurrentFrame->getData() + mOffset, wanted);
        mOffset += wanted;
        return count;
    }
    for (;;) {
        // An empty frame has no block to copy from.
        if (available > 0) {
            std::memcpy(dst, mCurrentFrame->getData() + mOffset, available);
        }
        if (available >= wanted) {
            break;
        }
        mCurrentFrame = mReader->nextFrame();
        wanted -= available;
        if (!mCurrentFrame) {
            return count - samplesIn(wanted, bytesPerSample);
        }
        mOffset = 0;
        dst += available;
        available = std::min(mCurrentFrame->getSize(), wanted);
    }
    wanted -= available;
    if (mOffset + available >= mCurrentFrame->getSize()) {
        // The frame is used up: take the next one now (this may wait).
        mCurrentFrame = mReader->nextFrame();
        mOffset = 0;
    } else {
        mOffset += available;
    }
    return count - samplesIn(wanted, bytesPerSample);
}

void RQSampleReader::reset() {
    ZR_THROW(kFile, CString("NOT IMPLEMENTED!"));
}

// RQVideoFrameWriter

RQVideoFrameWriter* RQVideoFrameWriter::createWithFrameWriter(RQFrameWriter* writer) {
    auto* adapter = new RQVideoFrameWriter;
    adapter->initWithWriter(writer);
    return adapter;
}

void RQVideoFrameWriter::initWithWriter(RQFrameWriter* writer) {
    mWriter = writer;
    mHeldFrame = nullptr;
    mFrameCounter = 0;
}

void RQVideoFrameWriter::setDescriptionP(const RVideoDescription* description) {
    mWriter->setDescriptionP(description);
    mDefaultDuration = 1.0 / description->mFrameRate;
}

void RQVideoFrameWriter::putP(RFrame* frame) {
    frame->setFrameNumber(mFrameCounter++);
    if (mHeldFrame) {
        const double duration = frame->getStartTime() - mHeldFrame->getStartTime();
        mHeldFrame->setDuration(duration >= 0 ? CTimeStamp(duration) : mDefaultDuration);
        mWriter->putP(mHeldFrame.addr());
    }
    mHeldFrame = frame;
}

// Unlike a successor that starts too early, an end time before the last frame gives it no
// duration at all rather than the default one.
void RQVideoFrameWriter::end(CTimeStamp endTime) {
    if (mHeldFrame) {
        const double duration = endTime - mHeldFrame->getStartTime();
        mHeldFrame->setDuration(duration > 0 ? duration : 0.0);
        mWriter->putP(mHeldFrame.addr());
        mHeldFrame = nullptr;
    }
    mWriter->end();
}

}  // namespace CM
}  // namespace ZR
