// Hashes of the container layer.
//
// `co_hash(data, n)` is the byte-sequence hash on which every other hash of
// the store is built (strings, pointer values, record keys). It is FNV-1a:
// deterministic across runs and platforms, which keeps hash-dependent
// behaviour reproducible.
#pragma once

#include <cstddef>
#include <cstdint>

inline unsigned int co_hash(void const* data, int n)
{
    unsigned char const* p = static_cast<unsigned char const*>(data);
    std::uint32_t h = 2166136261u;
    for (int i = 0; i < n; ++i) {
        h ^= p[i];
        h *= 16777619u;
    }
    return h;
}

// Hash of a pointer value: all bytes of the address.
inline unsigned int co_hash_pointer(void const* p)
{
    return co_hash(&p, static_cast<int>(sizeof p));
}

inline unsigned int co_hash(void* p) { return co_hash_pointer(p); }
inline unsigned int co_hash(void const* p) { return co_hash_pointer(p); }
inline unsigned int co_hash(int v) { return co_hash(&v, static_cast<int>(sizeof v)); }
inline unsigned int co_hash(unsigned int v) { return co_hash(&v, static_cast<int>(sizeof v)); }
inline unsigned int co_hash(long long v) { return co_hash(&v, static_cast<int>(sizeof v)); }

// Pointers to any class hash by address.
template <class T>
inline unsigned int co_hash(T* p) { return co_hash_pointer(static_cast<void const*>(p)); }
