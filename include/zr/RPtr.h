// ZR::RPtr<T>: the intrusive smart pointer over zrbase::object_refcount.
//
// Constructing from a raw pointer retains it, destroying releases it; a null pointer is
// held as null and never retained or released. RPtr<const T> is how read-only objects
// shared between threads (frames handed to readers, parameters, descriptions) are held.
// An RPtr itself is a plain value: one thread at a time.
#ifndef ZR_RPTR_H
#define ZR_RPTR_H

#include <zrbase/object_refcount.h>

#include <cstddef>
#include <type_traits>
#include <utility>

namespace ZR {

template <typename T>
class RPtr : public zrbase::ptr_refcount<T> {
    using base = zrbase::ptr_refcount<T>;
    template <typename U>
    friend class RPtr;

public:
    RPtr() noexcept : base(nullptr) {}
    RPtr(std::nullptr_t) noexcept : base(nullptr) {}
    RPtr(T* p) noexcept : base(p) { retainHeld(); }
    RPtr(const RPtr& other) noexcept : base(other.m_ptr) { retainHeld(); }
    RPtr(RPtr&& other) noexcept : base(other.m_ptr) { other.m_ptr = nullptr; }

    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    RPtr(const RPtr<U>& other) noexcept : base(other.m_ptr) {
        retainHeld();
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    RPtr(RPtr<U>&& other) noexcept : base(other.m_ptr) {
        other.m_ptr = nullptr;
    }

    ~RPtr() { releaseHeld(); }

    RPtr& operator=(const RPtr& other) noexcept { return reset(other.m_ptr); }
    RPtr& operator=(T* p) noexcept { return reset(p); }
    RPtr& operator=(RPtr&& other) noexcept {
        if (this != &other) {
            releaseHeld();
            this->m_ptr = other.m_ptr;
            other.m_ptr = nullptr;
        }
        return *this;
    }

    T* addr() const noexcept { return this->m_ptr; }
    T* operator->() const noexcept { return this->m_ptr; }
    T& operator*() const noexcept { return *this->m_ptr; }
    explicit operator bool() const noexcept { return this->m_ptr != nullptr; }

    friend bool operator==(const RPtr& a, const RPtr& b) noexcept { return a.m_ptr == b.m_ptr; }
    friend bool operator!=(const RPtr& a, const RPtr& b) noexcept { return a.m_ptr != b.m_ptr; }

private:
    // Retain the new object before releasing the old one: they may be the same.
    RPtr& reset(T* p) noexcept {
        if (p) {
            p->retain();
        }
        releaseHeld();
        this->m_ptr = p;
        return *this;
    }
    void retainHeld() noexcept {
        if (this->m_ptr) {
            this->m_ptr->retain();
        }
    }
    void releaseHeld() noexcept {
        if (this->m_ptr) {
            this->m_ptr->release();
        }
    }
};

}  // namespace ZR

#endif
