// Hashes of the container layer.
//
// `co_hash(data, n)` is the byte-sequence hash on which the hashes of names,
// strings, record keys and pointer values are built. It is FNV-1a:
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

// Hash of a pointer value: the byte-sequence hash over every byte of the
// address, like any other key of a set or table.
inline unsigned int co_hash_pointer(void const* p) { return co_hash(&p, static_cast<int>(sizeof p)); }

// Slot index mix for the open-addressed tables keyed by live addresses
// (the analyser's, the address tables). They hash every look-up, millions
// of them in a large conversion, and mask the result to a power of two, so
// they want all address bits in the low bits at the cost of a multiply:
// the high word is folded in first, then the product's upper half, where
// every bit of the address has had its say, is the index.
inline unsigned int co_mix_address(void const* p)
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
