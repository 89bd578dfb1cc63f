#include <cm/CMQueue.h>

#include <cm/CMFrame.h>

#include <mutex>
#include <typeinfo>

namespace ZR {
namespace CM {

RQueue::RQueue(int lowLimit, int highLimit, const CString& name)
    : mTail(&mHead), mLowLimit(lowLimit), mHighLimit(highLimit), mName(name) {}

RQueue::~RQueue() {
    mDescription = nullptr;
    clear();
}

void RQueue::setLimits(int low, int high) {
    std::lock_guard<CMutex> lock(mMutex);
    mLowLimit = low;
    mHighLimit = high;
}

void RQueue::setDescription(const RQDescription* description) noexcept {
    mDescription = description;
}

void RQueue::put(RQNode* node) {
    if (!node) {
        return;
    }
    node->retain();
    mTail->mNext = node;
    mTail = node;
    ++mNodeCount;
    const unsigned int size = node->getSize();
    // Only the writer changes the count, under the mutex: no read-modify-write needed.
    mFramesPut.store(mFramesPut.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    mBytesPut += size;
    mBytesHeld += size;
}

RQNode* RQueue::nextNode(RQNode* node) noexcept {
    if (!node) {
        return nullptr;
    }
    RQNode* const successor = node->mNext;
    if (++node->mReadCount >= mReaderCount) {
        remove();
    }
    return successor;
}

void RQueue::remove() noexcept {
    RQNode* const head = mHead.mNext;
    if (!head) {
        return;
    }
    const unsigned int size = head->getSize();
    RQNode* const successor = head->mNext;
    head->mNext = nullptr;
    head->mReadCount = 0;
    head->release();
    mHead.mNext = successor;
    if (!successor) {
        mTail = &mHead;
    } else if (const RFrame* frame = frameOf(successor)) {
        // The times are those of the frame that has just become the head: the oldest one
        // somebody has still to read.
        const CTimeStamp start = frame->getStartTime();
        if (!(mLastReadFrameTime.load(std::memory_order_relaxed) >= start)) {
            mLastReadFrameTime.store(start, std::memory_order_relaxed);
        }
        if (!mFirstReadFrameTimeSet) {
            mFirstReadFrameTimeSet = true;
            mFirstReadFrameTime.store(start, std::memory_order_relaxed);
        }
    }
    --mNodeCount;
    mBytesHeld -= size;
}

const RFrame* RQueue::frameOf(const RQNode* node) noexcept {
    // A queue carries frames of one kind, so the class checked last is almost always the
    // class of the next node: comparing type_info costs far less than a dynamic_cast.
    const std::type_info& type = typeid(*node);
    if (&type == mFrameType) {
        return static_cast<const RFrame*>(node);
    }
    const auto* frame = dynamic_cast<const RFrame*>(node);
    if (frame) {
        mFrameType = &type;
    }
    return frame;
}

void RQueue::forgetPasses(RQNode* position) noexcept {
    for (RQNode* node = mHead.mNext; node && node != position; node = node->mNext) {
        --node->mReadCount;
    }
}

void RQueue::unregisterReader(RQNode* position) noexcept {
    forgetPasses(position);
    --mReaderCount;
    if (position && mReaderCount <= position->mReadCount) {
        remove();
    }
}

void RQueue::eoq() {
    std::lock_guard<CMutex> lock(mMutex);
    mEndOfQueue.store(true, std::memory_order_release);
    if (mReadersWaiting > 0) {
        mDataCondition.broadcast();
    }
}

void RQueue::wakeWaiters() {
    std::lock_guard<CMutex> lock(mMutex);
    if (mReadersWaiting > 0) {
        mDataCondition.broadcast();
    }
    if (mWritersWaiting > 0) {
        mRoomCondition.broadcast();
    }
}

// Readers of this queue belong to other components, which handle the same "rstr" at other
// moments: a reader may still hold a node released here. Each reader therefore compares
// the clear count under the mutex before it touches its position again, and one that was
// reset before this clear has already taken back its passes, so no node of the next run
// is dropped early on its account.
void RQueue::clear() noexcept {
    while (RQNode* const node = mHead.mNext) {
        mHead.mNext = node->mNext;
        node->mNext = nullptr;
        node->mReadCount = 0;
        node->release();
    }
    mTail = &mHead;
    mNodeCount = 0;
    mFramesPut.store(0, std::memory_order_relaxed);
    mBytesPut = 0;
    mBytesHeld = 0;
    ++mGeneration;
}

namespace {

// Reads one field of the queue under its mutex.
template <typename T>
T lockedRead(CMutex& mutex, const T& field) {
    std::lock_guard<CMutex> lock(mutex);
    return field;
}

}  // namespace

int RQueue::getNodeCount() const {
    return lockedRead(mMutex, mNodeCount);
}
int RQueue::getReaderCount() const {
    return lockedRead(mMutex, mReaderCount);
}
std::uint64_t RQueue::getFramesPut() const {
    std::lock_guard<CMutex> lock(mMutex);
    return mFramesPut.load(std::memory_order_relaxed);
}
std::uint64_t RQueue::getBytesPut() const {
    return lockedRead(mMutex, mBytesPut);
}
std::uint64_t RQueue::getBytesHeld() const {
    return lockedRead(mMutex, mBytesHeld);
}
int RQueue::getLowLimit() const {
    return lockedRead(mMutex, mLowLimit);
}
int RQueue::getHighLimit() const {
    return lockedRead(mMutex, mHighLimit);
}
RPtr<const RQDescription> RQueue::getDescription() const {
    return lockedRead(mMutex, mDescription);
}
int RQueue::getReadersWaiting() const {
    return lockedRead(mMutex, mReadersWaiting);
}
int RQueue::getWritersWaiting() const {
    return lockedRead(mMutex, mWritersWaiting);
}

}  // namespace CM
}  // namespace ZR
