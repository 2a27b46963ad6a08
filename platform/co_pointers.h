// Pointer kinds of the container layer.
//
//   coPtr<T>  plain pointer; owns nothing.
//   coPrg<T>  single owner: deletes its pointee on reassignment and
//             destruction; copying hands the pointee over and leaves the
//             source null (the store relies on that hand-over).
//   coPrf<T>  counted pointer: copies share one utRef; the last one to let go
//             deletes the pointee. Its layout is always (pointer, count
//             pointer), whatever T is, so that the store can treat any counted
//             pointer field alike.
#pragma once

#include "platform/co_hash.h"
#include "platform/ut_ref.h"
#include "platform/ut_tags.h"

#include <utility>

template <class T>
class coPtr {
public:
    coPtr(T* p = nullptr) : m_ptr(p) {}
    T* get() const { return m_ptr; }
    operator T*() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }

private:
    T* m_ptr;
};

template <class T>
class coPrg {
public:
    coPrg() : m_ptr(nullptr) {}
    explicit coPrg(T* p) : m_ptr(p) {}
    coPrg(utPtrClaimTag, T* p) : m_ptr(p) {}
    // Hand-over on copy: the source gives up its pointee.
    coPrg(coPrg const& other) : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
    coPrg(coPrg&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
    coPrg& operator=(coPrg const& other)
    {
        if (this != &other) {
            T* p = other.m_ptr;
            other.m_ptr = nullptr;
            reset(p);
        }
        return *this;
    }
    coPrg& operator=(coPrg&& other) noexcept
    {
        if (this != &other) {
            T* p = other.m_ptr;
            other.m_ptr = nullptr;
            reset(p);
        }
        return *this;
    }
    // Takes ownership of p; the earlier pointee is deleted.
    coPrg& operator=(T* p)
    {
        reset(p);
        return *this;
    }
    ~coPrg() { delete m_ptr; }

    void reset(T* p = nullptr)
    {
        if (p == m_ptr)
            return;
        T* old = m_ptr;
        m_ptr = p;
        delete old;
    }
    // Gives the pointee up without deleting it.
    T* release()
    {
        T* p = m_ptr;
        m_ptr = nullptr;
        return p;
    }
    T* get() const { return m_ptr; }
    operator T*() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }

private:
    mutable T* m_ptr;
};

enum coPrfExternTag { coPrfExtern };

template <class T>
class coPrf {
public:
    coPrf() : m_ptr(nullptr), m_ref(nullptr) {}
    // A fresh count of 1 for p; a null p holds no count.
    explicit coPrf(T* p) : m_ptr(p), m_ref(p ? new utRef(1) : nullptr) {}
    coPrf(coPrfExternTag, T* p) : coPrf(p) {}
    coPrf(coPrf const& other) : m_ptr(other.m_ptr), m_ref(other.m_ref)
    {
        if (m_ref)
            m_ref->increment();
    }
    coPrf(coPrf&& other) noexcept : m_ptr(other.m_ptr), m_ref(other.m_ref)
    {
        other.m_ptr = nullptr;
        other.m_ref = nullptr;
    }
    coPrf& operator=(coPrf const& other)
    {
        if (m_ref != other.m_ref || m_ptr != other.m_ptr) {
            coPrf copy(other);
            swap(copy);
        }
        return *this;
    }
    coPrf& operator=(coPrf&& other) noexcept
    {
        coPrf moved(std::move(other));
        swap(moved);
        return *this;
    }
    ~coPrf() { release(); }

    void swap(coPrf& other) noexcept
    {
        std::swap(m_ptr, other.m_ptr);
        std::swap(m_ref, other.m_ref);
    }
    // Lets go of this reference; deletes the pointee if it was the last.
    void release()
    {
        if (m_ref && m_ref->decrement() <= 0) {
            delete m_ref;
            delete m_ptr;
        }
        m_ptr = nullptr;
        m_ref = nullptr;
    }
    int unique() const { return m_ref == nullptr || m_ref->unique(); }
    int count() const { return m_ref ? m_ref->count() : 0; }
    utRef* ref() const { return m_ref; }
    T* get() const { return m_ptr; }
    operator T*() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }

private:
    T* m_ptr;
    utRef* m_ref;
};

template <class T>
inline unsigned int co_hash(coPtr<T> const& p) { return co_hash_pointer(p.get()); }
template <class T>
inline unsigned int co_hash(coPrg<T> const& p) { return co_hash_pointer(p.get()); }
template <class T>
inline unsigned int co_hash(coPrf<T> const& p) { return co_hash_pointer(p.get()); }
