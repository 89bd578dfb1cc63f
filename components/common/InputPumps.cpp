#include "common/InputPumps.h"

#include <cm/CMQueue.h>
#include <zr/CThread.h>

#include <mutex>

using ZR::RPtr;
using ZR::CM::RDescription;
using ZR::CM::RFrame;
using ZR::CM::RQFrameReader;

namespace cmcomponents {

CInputPumps::CInputPumps(const std::vector<RQFrameReader*>& readers) {
    mRunning = readers.size();
    mThreads.reserve(readers.size());
    for (std::size_t i = 0; i < readers.size(); ++i) {
        mThreads.emplace_back(&CInputPumps::pump, this, i, readers[i]);
    }
}

CInputPumps::~CInputPumps() {
    {
        std::lock_guard<ZR::CMutex> lock(mMutex);
        mStopping = true;
        mRoom.broadcast();
    }
    for (std::thread& thread : mThreads) {
        thread.join();
    }
}

void CInputPumps::pump(std::size_t input, RQFrameReader* reader) {
    bool first = true;
    try {
        for (;;) {
            Arrival arrival;
            arrival.input = input;
            arrival.frame = reader->nextSharedFrame();
            arrival.first = first;
            if (first) {
                arrival.description =
                    static_cast<const RDescription*>(reader->getQueue()->getDescription().addr());
                first = false;
            }
            const bool ended = !arrival.frame;
            if (!deliver(std::move(arrival)) || ended) {
                break;
            }
        }
    } catch (const ZR::CThreadAbort&) {
        std::lock_guard<ZR::CMutex> lock(mMutex);
        mAborted = true;
    }
    std::lock_guard<ZR::CMutex> lock(mMutex);
    --mRunning;
    mArrived.broadcast();
}

bool CInputPumps::deliver(Arrival arrival) {
    std::lock_guard<ZR::CMutex> lock(mMutex);
    while (mWaiting.size() >= kMaxWaiting && !mStopping) {
        mRoom.wait(mMutex);
    }
    if (mStopping) {
        return false;
    }
    mWaiting.push_back(std::move(arrival));
    mArrived.broadcast();
    return true;
}

bool CInputPumps::next(Arrival& arrival) {
    std::lock_guard<ZR::CMutex> lock(mMutex);
    while (mWaiting.empty() && mRunning > 0 && !mAborted) {
        mArrived.wait(mMutex);
    }
    if (mAborted || mWaiting.empty()) {
        return false;
    }
    arrival = std::move(mWaiting.front());
    mWaiting.pop_front();
    mRoom.broadcast();
    return true;
}

bool CInputPumps::aborted() const {
    std::lock_guard<ZR::CMutex> lock(mMutex);
    return mAborted;
}

}  // namespace cmcomponents
