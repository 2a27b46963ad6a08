// Hashes of the container layer.
//
// `co_hash(data, n)` is the byte-sequence hash on which the hashes of names,
// strings and record keys are built. It is FNV-1a: deterministic across runs
// and platforms, which keeps hash-dependent behaviour reproducible. Pointer
// values have a hash of their own (co_hash_pointer), as addresses differ
// from run to run anyway.
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

// Hash of a pointer value. Tables keyed by addresses (live objects, values)
// hash every look-up, and millions of them in a large conversion, so this
// is a multiplicative mix of the whole address rather than a loop over its
// bytes: the high word is folded in first, then the product's upper half,
// where every bit of the address has had its say, is the hash.
inline unsigned int co_hash_pointer(void const* p)
{
    std::uint64_t x = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p));
    x ^= x >> 32;
    x *= 0x9E3779B97F4A7C15ull;
    return static_cast<unsigned int>(x >> 32);
}

inline unsigned int co_hash(void* p) { return co_hash_pointer(p); }
inline unsigned int co_hash(void const* p) { return co_hash_pointer(p); }
inline unsigned int co_hash(int v) { return co_hash(&v, static_cast<int>(sizeof v)); }
inline unsigned int co_hash(unsigned int v) { return co_hash(&v, static_cast<int>(sizeof v)); }
inline unsigned int co_hash(long long v) { return co_hash(&v, static_cast<int>(sizeof v)); }

// Pointers to any class hash by address.
template <class T>
inline unsigned int co_hash(T* p) { return co_hash_pointer(static_cast<void const*>(p)); }
