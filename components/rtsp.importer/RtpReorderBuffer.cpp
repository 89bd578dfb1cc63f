#include "rtsp.importer/RtpReorderBuffer.h"

#include <algorithm>

namespace cmcomponents {

namespace {

// The distance from `from` to `to` in sequence numbers, which wrap at 65536.
int distance(std::uint16_t from, std::uint16_t to) {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(to - from));
}

}  // namespace

CRtpReorderBuffer::CRtpReorderBuffer(std::size_t window)
    : mSlots(std::clamp<std::size_t>(window, 1, 1024)) {}

void CRtpReorderBuffer::push(const CRtpPacket& packet, const unsigned char* bytes, std::size_t size,
                             Target& target) {
    if (!mStarted) {
        mStarted = true;
        mExpected = packet.sequence;
    }
    int ahead = distance(mExpected, packet.sequence);
    if (ahead <= -kRestartDistance || ahead >= kRestartDistance) {
        restart(packet, target);
        return;
    }
    if (ahead < 0) {
        ++mCounts.duplicated;
        return;
    }
    while (ahead >= static_cast<int>(mSlots.size())) {
        skipGap(packet.sequence, target);
        ahead = distance(mExpected, packet.sequence);
    }
    if (ahead == 0) {
        deliver(packet, target);
        drain(target);
        return;
    }
    Slot& slot = slotOf(packet.sequence);
    if (slot.used) {
        ++mCounts.duplicated;
        return;
    }
    slot.used = true;
    slot.sequence = packet.sequence;
    slot.bytes.assign(bytes, bytes + size);
    ++mHeld;
}

void CRtpReorderBuffer::flush(Target& target) {
    while (mHeld > 0) {
        skipGap(mExpected, target);
    }
}

void CRtpReorderBuffer::deliver(const CRtpPacket& packet, Target& target) {
    ++mCounts.delivered;
    const bool afterLoss = mLossPending;
    mLossPending = false;
    ++mExpected;
    target.deliver(packet, afterLoss);
}

void CRtpReorderBuffer::drain(Target& target) {
    while (mHeld > 0) {
        Slot& slot = slotOf(mExpected);
        if (!slot.used || slot.sequence != mExpected) {
            return;
        }
        CRtpPacket packet;
        // The bytes parsed when they came in.
        packet.parse(slot.bytes.data(), slot.bytes.size());
        ++mCounts.reordered;
        --mHeld;
        deliver(packet, target);
        slot.used = false;
    }
}

void CRtpReorderBuffer::skipGap(std::uint16_t sequence, Target& target) {
    std::uint16_t next = sequence;
    if (mHeld > 0) {
        for (std::size_t i = 1; i < mSlots.size(); ++i) {
            const auto candidate = static_cast<std::uint16_t>(mExpected + i);
            const Slot& slot = slotOf(candidate);
            if (slot.used && slot.sequence == candidate) {
                next = candidate;
                break;
            }
        }
    }
    const int skipped = distance(mExpected, next);
    if (skipped > 0) {
        mCounts.lost += static_cast<unsigned long long>(skipped);
        mLossPending = true;
        mExpected = next;
    }
    drain(target);
}

void CRtpReorderBuffer::restart(const CRtpPacket& packet, Target& target) {
    flush(target);
    ++mCounts.restarts;
    mExpected = packet.sequence;
    mLossPending = true;
    deliver(packet, target);
}

}  // namespace cmcomponents
