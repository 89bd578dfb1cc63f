#include "CMFrameBlockPool.h"

#include <malloc.h>
#include <sanitizer/asan_interface.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace ZR {
namespace CM {
namespace FrameBlockPool {

namespace {

// Frame blocks are a capacity plus 64 bytes of slack, and capacities are mostly round
// numbers: classes of four steps per power of two from 64 KiB to 28 MiB, each plus the
// slack, fit those exactly and waste at most a quarter of any other block.
constexpr std::size_t kSlack = 64;
constexpr unsigned kFirstShift = 16;
constexpr int kStepsPerOctave = 4;
constexpr int kClasses = 9 * kStepsPerOctave;
// Enough blocks per class for the frames a queue between two limits releases at once.
constexpr int kSlotsPerClass = 64;
// What the pool may hold altogether; beyond it, blocks go back to malloc().
constexpr std::size_t kBudget = std::size_t{128} << 20;

std::size_t classBytes(int index) {
    const auto octave = static_cast<unsigned>(index / kStepsPerOctave);
    const auto step = static_cast<std::size_t>(index % kStepsPerOctave);
    return ((kStepsPerOctave + step) << (kFirstShift - 2 + octave)) + kSlack;
}

unsigned floorLog2(std::size_t n) {
    return static_cast<unsigned>(sizeof(unsigned long long) * 8 - 1) -
           static_cast<unsigned>(__builtin_clzll(n));
}

// The smallest class that holds `bytes`; kClasses for blocks left to malloc(), those too
// small to gain from the pool and those larger than any class.
int classFor(std::size_t bytes) {
    if (bytes < (std::size_t{1} << kFirstShift)) {
        return kClasses;
    }
    if (bytes <= classBytes(0)) {
        return 0;
    }
    const std::size_t payload = bytes - kSlack;
    const unsigned octave = floorLog2(payload) - kFirstShift;
    const std::size_t stepBytes = std::size_t{1} << (kFirstShift - 2 + octave);
    const std::size_t above = payload - (std::size_t{1} << (kFirstShift + octave));
    const auto step = static_cast<int>((above + stepBytes - 1) / stepBytes);
    const int index = static_cast<int>(octave) * kStepsPerOctave + step;
    return index < kClasses ? index : kClasses;
}

// The largest class whose blocks fit into `usable` bytes; -1 when none does.
int classWithin(std::size_t usable) {
    if (usable < classBytes(0)) {
        return -1;
    }
    const std::size_t payload = usable - kSlack;
    const unsigned octave = floorLog2(payload) - kFirstShift;
    const std::size_t above = payload - (std::size_t{1} << (kFirstShift + octave));
    const auto step = static_cast<int>(above >> (kFirstShift - 2 + octave));
    const int index = static_cast<int>(octave) * kStepsPerOctave + step;
    return index < kClasses ? index : kClasses - 1;
}

// A slot holds a pooled block or null. Classes sit on cache lines of their own, so that
// streams of different sizes do not contend.
struct alignas(64) SizeClass {
    std::atomic<unsigned char*> slots[kSlotsPerClass];
};

SizeClass gClasses[kClasses];
std::atomic<std::size_t> gHeldBytes{0};

bool reserve(std::size_t bytes) {
    if (gHeldBytes.fetch_add(bytes, std::memory_order_relaxed) + bytes <= kBudget) {
        return true;
    }
    gHeldBytes.fetch_sub(bytes, std::memory_order_relaxed);
    return false;
}

unsigned char* take(int index) {
    for (std::atomic<unsigned char*>& slot : gClasses[index].slots) {
        if (slot.load(std::memory_order_relaxed) == nullptr) {
            continue;
        }
        // acquire: the releasing thread's last writes to the block come before ours.
        if (unsigned char* block = slot.exchange(nullptr, std::memory_order_acquire)) {
            gHeldBytes.fetch_sub(classBytes(index), std::memory_order_relaxed);
            return block;
        }
    }
    return nullptr;
}

bool put(int index, unsigned char* block) {
    for (std::atomic<unsigned char*>& slot : gClasses[index].slots) {
        unsigned char* empty = nullptr;
        if (slot.load(std::memory_order_relaxed) == nullptr &&
            slot.compare_exchange_strong(empty, block, std::memory_order_release,
                                         std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

// Faults in the whole pages of a block fresh from malloc() with one system call. A fresh
// block of a megabyte is otherwise faulted in page by page as the frame is first filled,
// a trap into the kernel for every 4 KiB, which on a virtual machine costs more than the
// filling itself. Pages malloc() had already used are only walked. Kernels before 5.14
// refuse the advice, and the pages then fault in as before. The whole class is mapped, so a
// frame smaller than its class holds up to a quarter more memory than it fills; the next
// frame the pool gives that block to may fill it.
void prefault(unsigned char* block, std::size_t bytes) noexcept {
    if (!block) {
        return;
    }
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t first = (reinterpret_cast<std::uintptr_t>(block) + page - 1) & ~(page - 1);
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(block) + bytes) & ~(page - 1);
    if (end > first) {
        madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_WRITE);
    }
}

}  // namespace

unsigned char* allocate(std::size_t bytes) noexcept {
    const int index = classFor(bytes);
    if (index < kClasses) {
        if (unsigned char* block = take(index)) {
            ASAN_UNPOISON_MEMORY_REGION(block, classBytes(index));
            return block;
        }
        bytes = classBytes(index);
    }
    auto* block = static_cast<unsigned char*>(std::malloc(bytes));
    if (bytes >= (std::size_t{1} << kFirstShift)) {
        prefault(block, bytes);
    }
    return block;
}

void release(unsigned char* block) noexcept {
    if (!block) {
        return;
    }
    const std::size_t usable = malloc_usable_size(block);
    const int index = classWithin(usable);
    if (index < 0 || !reserve(classBytes(index))) {
        std::free(block);
        return;
    }
    // Poisoned before it is published: once in a slot, another thread may take it at once.
    ASAN_POISON_MEMORY_REGION(block, usable);
    if (put(index, block)) {
        return;
    }
    ASAN_UNPOISON_MEMORY_REGION(block, usable);
    gHeldBytes.fetch_sub(classBytes(index), std::memory_order_relaxed);
    std::free(block);
}

}  // namespace FrameBlockPool
}  // namespace CM
}  // namespace ZR
