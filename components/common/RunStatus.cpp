#include "common/RunStatus.h"

#include <climits>
#include <mutex>

using ZR::CM::CComponentStatus;

namespace cmcomponents {

namespace {

int clampToInt(unsigned long long n) {
    return n > static_cast<unsigned long long>(INT_MAX) ? INT_MAX : static_cast<int>(n);
}

}  // namespace

void CRunStatus::fail(int result, const std::string& detail) {
    std::lock_guard<ZR::CMutex> lock(mMutex);
    if (failed()) {
        return;
    }
    mDetail = detail;
    mResult.store(result, std::memory_order_release);
}

void CRunStatus::setNote(const std::string& note) {
    std::lock_guard<ZR::CMutex> lock(mMutex);
    mNote = note;
}

void CRunStatus::clear() {
    std::lock_guard<ZR::CMutex> lock(mMutex);
    mDetail.clear();
    mNote.clear();
    mResult.store(ZR::CM::kResultOK, std::memory_order_release);
    mFrames.store(0, std::memory_order_relaxed);
    mBytes.store(0, std::memory_order_relaxed);
}

CComponentStatus CRunStatus::snapshot() const {
    CComponentStatus status;
    status.mStatusCode = mPhase.load(std::memory_order_acquire);
    status.mFrames = clampToInt(mFrames.load(std::memory_order_relaxed));
    status.mBytes = clampToInt(mBytes.load(std::memory_order_relaxed));
    std::lock_guard<ZR::CMutex> lock(mMutex);
    const int result = getResult();
    status.mExtra = static_cast<unsigned int>(result);
    if (result != ZR::CM::kResultOK) {
        const std::string info = std::string(ZR::CM::stringWithResultCode(result)) + ": " + mDetail;
        status.mInfo = info.c_str();
    } else if (!mNote.empty()) {
        status.mInfo = mNote.c_str();
    }
    return status;
}

}  // namespace cmcomponents
