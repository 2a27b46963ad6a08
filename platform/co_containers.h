// Containers of the container layer, as thin templates over the standard
// library.
//
// Sets and tables hash with `co_hash` (found by argument-dependent lookup, so
// the store's own overloads serve) and compare with `operator==`. They take
// the layer's two sizing arguments: the base-2 logarithm of the initial slot
// count and a growth hint, which the standard containers manage themselves.
//
//   coSet<stoValue*> seen;
//   if (seen.add(v) == nullptr) { /* v was new */ }
//   coTable<utString, int> counts;
//   ++counts["m_size"];                // absent keys start at int()
#pragma once

#include "platform/co_hash.h"

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <list>
#include <utility>
#include <vector>

struct coHasher {
    template <class T>
    std::size_t operator()(T const& v) const { return static_cast<std::size_t>(co_hash(v)); }
};

struct coEqual {
    template <class T>
    bool operator()(T const& a, T const& b) const { return static_cast<bool>(a == b); }
};

template <class T>
class coSet {
    using Impl = absl::flat_hash_set<T, coHasher, coEqual>;

public:
    using const_iterator = typename Impl::const_iterator;

    explicit coSet(int log2_slots = 4, int /*growth*/ = 50) { m_impl.reserve(std::size_t(1) << log2_slots); }

    // Answers the element already present that equals e, or the nil element
    // (T(), null for pointers) when e was added.
    T add(T const& e)
    {
        auto r = m_impl.insert(e);
        return r.second ? T() : *r.first;
    }
    int contains(T const& e) const { return m_impl.find(e) != m_impl.end(); }
    // Answers the element present that equals e, or the nil element.
    T find(T const& e) const
    {
        auto it = m_impl.find(e);
        return it == m_impl.end() ? T() : *it;
    }
    int remove(T const& e) { return static_cast<int>(m_impl.erase(e)); }
    // Removes and answers some element; the nil element when empty.
    T remove_any()
    {
        if (m_impl.empty())
            return T();
        auto it = m_impl.begin();
        T e = *it;
        m_impl.erase(it);
        return e;
    }
    int size() const { return static_cast<int>(m_impl.size()); }
    int is_empty() const { return m_impl.empty(); }
    void clear() { m_impl.clear(); }
    const_iterator begin() const { return m_impl.begin(); }
    const_iterator end() const { return m_impl.end(); }

private:
    Impl m_impl;
};

template <class K, class V>
class coTable {
    using Impl = absl::flat_hash_map<K, V, coHasher, coEqual>;

public:
    using iterator = typename Impl::iterator;
    using const_iterator = typename Impl::const_iterator;

    explicit coTable(int log2_slots = 4, int /*growth*/ = 50) { m_impl.reserve(std::size_t(1) << log2_slots); }

    // The value for key; an absent key gets an entry holding V() first.
    V& operator[](K const& key) { return m_impl[key]; }
    // The value for key, or null when absent; never creates an entry.
    V* find(K const& key)
    {
        auto it = m_impl.find(key);
        return it == m_impl.end() ? nullptr : &it->second;
    }
    V const* find(K const& key) const
    {
        auto it = m_impl.find(key);
        return it == m_impl.end() ? nullptr : &it->second;
    }
    int contains(K const& key) const { return m_impl.find(key) != m_impl.end(); }
    int remove(K const& key) { return static_cast<int>(m_impl.erase(key)); }
    int size() const { return static_cast<int>(m_impl.size()); }
    int is_empty() const { return m_impl.empty(); }
    void clear() { m_impl.clear(); }
    iterator begin() { return m_impl.begin(); }
    iterator end() { return m_impl.end(); }
    const_iterator begin() const { return m_impl.begin(); }
    const_iterator end() const { return m_impl.end(); }

private:
    Impl m_impl;
};

// Doubly linked list; iterators double as cursors.
template <class T>
class coDList : public std::list<T> {
public:
    using typename std::list<T>::iterator;
    void insert_first(T const& e) { this->push_front(e); }
    void insert_last(T const& e) { this->push_back(e); }
    iterator insert_before(iterator pos, T const& e) { return this->insert(pos, e); }
    iterator insert_after(iterator pos, T const& e) { return this->insert(std::next(pos), e); }
};

// Array addressed by index, grown in pages.
template <class T>
class coPageArr {
public:
    int append(T const& e)
    {
        m_impl.push_back(e);
        return size() - 1;
    }
    int append(T&& e)
    {
        m_impl.push_back(std::move(e));
        return size() - 1;
    }
    T& operator[](int i) { return m_impl[static_cast<std::size_t>(i)]; }
    T const& operator[](int i) const { return m_impl[static_cast<std::size_t>(i)]; }
    int size() const { return static_cast<int>(m_impl.size()); }
    void copy(coPageArr const& other) { m_impl = other.m_impl; }
    void reverse() { std::reverse(m_impl.begin(), m_impl.end()); }
    void clear() { m_impl.clear(); }
    auto begin() { return m_impl.begin(); }
    auto end() { return m_impl.end(); }
    auto begin() const { return m_impl.begin(); }
    auto end() const { return m_impl.end(); }

private:
    std::deque<T> m_impl;
};

// Array kept in blocks: an element never moves once made, so pointers to
// elements stay valid while the array grows.
template <class T>
class coVariableArr {
public:
    T& append(T const& e)
    {
        m_impl.push_back(e);
        return m_impl.back();
    }
    template <class... A>
    T& emplace(A&&... args)
    {
        m_impl.emplace_back(std::forward<A>(args)...);
        return m_impl.back();
    }
    // Grows (default-constructing) or shrinks from the end to n elements.
    void resize(int n) { m_impl.resize(static_cast<std::size_t>(n)); }
    T& operator[](int i) { return m_impl[static_cast<std::size_t>(i)]; }
    T const& operator[](int i) const { return m_impl[static_cast<std::size_t>(i)]; }
    int size() const { return static_cast<int>(m_impl.size()); }
    void clear() { m_impl.clear(); }
    auto begin() { return m_impl.begin(); }
    auto end() { return m_impl.end(); }
    auto begin() const { return m_impl.begin(); }
    auto end() const { return m_impl.end(); }

private:
    std::deque<T> m_impl;
};

template <class T>
class coDynArr {
public:
    void reserve(int n) { m_impl.reserve(static_cast<std::size_t>(n)); }
    void resize(int n) { m_impl.resize(static_cast<std::size_t>(n)); }
    // Gives back capacity beyond the current size.
    void shrink() { m_impl.shrink_to_fit(); }
    void append(T const& e) { m_impl.push_back(e); }
    T& operator[](int i) { return m_impl[static_cast<std::size_t>(i)]; }
    T const& operator[](int i) const { return m_impl[static_cast<std::size_t>(i)]; }
    int size() const { return static_cast<int>(m_impl.size()); }
    T* data() { return m_impl.data(); }
    void clear() { m_impl.clear(); }
    auto begin() { return m_impl.begin(); }
    auto end() { return m_impl.end(); }
    auto begin() const { return m_impl.begin(); }
    auto end() const { return m_impl.end(); }

private:
    std::vector<T> m_impl;
};

// Stack; popping destroys the element (an owning pointer deletes its pointee).
template <class T>
class coStack {
public:
    void push(T const& e) { m_impl.push_back(e); }
    void push(T&& e) { m_impl.push_back(std::move(e)); }
    void pop() { m_impl.pop_back(); }
    T& top() { return m_impl.back(); }
    T const& top() const { return m_impl.back(); }
    int is_empty() const { return m_impl.empty(); }
    int size() const { return static_cast<int>(m_impl.size()); }
    auto begin() const { return m_impl.rbegin(); }
    auto end() const { return m_impl.rend(); }

private:
    std::vector<T> m_impl;
};
