// The recycling of large frame data blocks. Private to the library.
//
// A stream of large frames (raw video of a megabyte and more) allocates and frees a block
// per frame and per reader. glibc gives such blocks back to the kernel (a separate
// mapping, or the trimmed top of a thread's heap) and the next block of the same size
// faults in every page again. The pool keeps a bounded number of freed blocks per size
// class and hands them out again instead.
//
// Every block is an ordinary malloc() block, so a block from the pool may still be
// released with free(), and any malloc() block (one a frame adopted) may be given to the
// pool. Small blocks are left to malloc(), which recycles them well by itself.
//
// Threads: any thread may allocate and release at once; a block is typically allocated by
// the thread that fills a frame and released by the last reader of the frame. There is no
// lock: each class is a fixed array of slots taken and filled by atomic exchange.
//
// Under AddressSanitizer a pooled block is poisoned until it is handed out again, so a
// frame's reader that touches the block after the frame is gone is reported as it would be
// after free().
#ifndef CM_LIB_CMFRAMEBLOCKPOOL_H
#define CM_LIB_CMFRAMEBLOCKPOOL_H

#include <cstddef>

namespace ZR {
namespace CM {
namespace FrameBlockPool {

// A block of at least `bytes` bytes, from the pool when one of a fitting class is free,
// else from malloc(); null when out of memory. A large block fresh from malloc() has its
// pages faulted in already.
unsigned char* allocate(std::size_t bytes) noexcept;

// Takes back a malloc() block (null is ignored): into the pool while its class and the
// pool's byte budget have room, else to free().
void release(unsigned char* block) noexcept;

}  // namespace FrameBlockPool
}  // namespace CM
}  // namespace ZR

#endif
