// CRtpReorderBuffer: puts the packets of one RTP stream back into sequence-number order
// within a small window, and says where packets went missing.
//
// A packet that comes in order goes straight on, without a copy. One that comes early is
// kept (a copy of its bytes) until the packets before it arrive; once the stream has run
// `window` sequence numbers past a gap, the gap is given up: its packets count as lost,
// and the next packet handed on carries afterLoss. A packet that comes after its place was
// passed, or a second copy of one, is dropped and counted. A jump of thousands of
// sequence numbers (a sender that started again) is taken as a new start, not as a loss.
//
// Counts, as a receiver reports them: packets handed on, lost, duplicated or late,
// reordered (kept for a while, then handed on).
//
// Belongs to the thread that receives the stream; no lock.
#ifndef CM_COMPONENTS_RTSPIMPORTER_RTPREORDERBUFFER_H
#define CM_COMPONENTS_RTSPIMPORTER_RTPREORDERBUFFER_H

#include "rtsp.importer/RtpPackets.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cmcomponents {

class CRtpReorderBuffer {
public:
    static constexpr std::size_t kDefaultWindow = 32;

    // Where the packets go, in order.
    class Target {
    public:
        virtual ~Target() = default;
        // afterLoss: packets just before this one were given up.
        virtual void deliver(const CRtpPacket& packet, bool afterLoss) = 0;
    };

    struct Counts {
        unsigned long long delivered = 0;
        unsigned long long lost = 0;
        unsigned long long duplicated = 0;  // a copy, or one that came after its place passed
        unsigned long long reordered = 0;
        unsigned long long restarts = 0;  // jumps taken as a new start
    };

    // window from 1 to 1024 sequence numbers.
    explicit CRtpReorderBuffer(std::size_t window = kDefaultWindow);

    // Takes a parsed packet whose bytes are [bytes, bytes + size); hands on what is now in
    // order.
    void push(const CRtpPacket& packet, const unsigned char* bytes, std::size_t size,
              Target& target);
    // Hands on every packet held, counting the gaps between them as lost.
    void flush(Target& target);

    const Counts& counts() const noexcept { return mCounts; }

private:
    struct Slot {
        bool used = false;
        std::uint16_t sequence = 0;
        std::vector<unsigned char> bytes;
    };

    // Jumps of at least this many sequence numbers start the stream again.
    static constexpr int kRestartDistance = 3000;

    Slot& slotOf(std::uint16_t sequence) { return mSlots[sequence % mSlots.size()]; }
    void deliver(const CRtpPacket& packet, Target& target);
    // Hands on the held packets that follow on without a gap.
    void drain(Target& target);
    // Gives up the gap at mExpected: skips to the first packet held, or to `sequence` when
    // none is, counting what it skips as lost, and hands on what then follows in order.
    void skipGap(std::uint16_t sequence, Target& target);
    // Takes the packet as the first of a new start.
    void restart(const CRtpPacket& packet, Target& target);

    std::vector<Slot> mSlots;
    std::size_t mHeld = 0;
    bool mStarted = false;
    bool mLossPending = false;
    std::uint16_t mExpected = 0;
    Counts mCounts;
};

}  // namespace cmcomponents

#endif
