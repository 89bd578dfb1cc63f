// Intrusive reference counting: the base of every object that travels between component
// threads (frames, descriptions, strings, components).
//
// A new object starts with a count of 0 and belongs to whoever holds it until the first
// ZR::RPtr takes it; the release that brings the count back to 0 destroys the object
// through its virtual destructor. retain() and release() may be called from any thread
// at once on the same object.
#ifndef ZRBASE_OBJECT_REFCOUNT_H
#define ZRBASE_OBJECT_REFCOUNT_H

#include <atomic>

namespace zrbase {

class object_refcount {
public:
    object_refcount() noexcept : m_count(0) {}
    // A copy is a new object: it starts unowned, whatever the count of its source.
    object_refcount(const object_refcount&) noexcept : m_count(0) {}
    object_refcount& operator=(const object_refcount&) noexcept { return *this; }
    virtual ~object_refcount();

    void retain() const noexcept { m_count.fetch_add(1, std::memory_order_relaxed); }

    void release() const noexcept {
        // acq_rel: the destroying thread must see every write the other owners made.
        if (m_count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

    int retain_count() const noexcept { return m_count.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<int> m_count;
};

// The one field of ZR::RPtr: the raw pointer it holds.
template <typename T>
class ptr_refcount {
protected:
    explicit ptr_refcount(T* p) noexcept : m_ptr(p) {}
    T* m_ptr;
};

}  // namespace zrbase

#endif
