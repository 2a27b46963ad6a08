// coAddressTable: a table keyed by non-null addresses, for the conversions'
// tables of values and live objects.
//
// Those tables hold one entry per object of a document, millions in a large
// one, and are probed in the order of a walk over the document, which is
// random for the table: nearly every probe misses the caches. Open
// addressing with linear probing over one array of (key, value) slots means
// a probe touches one cache line, and a walk can ask for that line ahead of
// time (prefetch), which the general-purpose table does not offer. Entries
// are never removed one by one; the table only grows.
//
//   coAddressTable<stoValue const*, void*> objects;
//   objects.prefetch(next);            // a few steps before looking it up
//   objects[v] = address;
//   if (void* const* a = objects.find(v)) ...
#pragma once

#include "platform/co_hash.h"

#include <cstdint>
#include <cstdlib>
#include <new>
#include <type_traits>

#if defined(__linux__)
#include <sys/mman.h>
#endif

// Asks the system to back a large, fresh, zeroed allocation with huge pages
// where it can. The conversions' tables are probed at random over hundreds of
// megabytes: with small pages nearly every probe of a large table also misses
// the address-translation caches, and filling the table takes one page fault
// per 4 KiB. Only a hint; nothing changes where it is not honoured.
inline void co_advise_huge_pages(void* p, std::size_t bytes)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr std::size_t kHuge = std::size_t(2) << 20;
    if (bytes < 2 * kHuge)
        return;
    std::uintptr_t page = 4096;
    std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(p) + page - 1) & ~(page - 1);
    std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(p) + bytes) & ~(page - 1);
    if (end > begin)
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
    (void)p;
    (void)bytes;
#endif
}

// The slot array of an open-addressing table, all slots zero (free). calloc
// gets a large one from the system untouched, so pages are only faulted in as
// slots are used. Free with std::free.
template <class Slot>
Slot* co_zeroed_slots(std::size_t count)
{
    static_assert(std::is_trivially_copyable_v<Slot>, "slots are zero bytes when free and copied as bytes");
    Slot* slots = static_cast<Slot*>(std::calloc(count, sizeof(Slot)));
    if (!slots)
        throw std::bad_alloc();
    co_advise_huge_pages(slots, count * sizeof(Slot));
    return slots;
}

// The unmasked home slot of an address in a table keyed by addresses.
// Addresses in one 4 KiB page go to one stretch of slots, in address order;
// the stretches of pages are spread by the hash of the page. A walk over
// objects made one after another then probes neighbouring slots instead of
// a random slot each time, which keeps a table far larger than the caches
// from missing them on nearly every probe.
inline std::size_t co_spread_address(void const* key)
{
    std::uintptr_t a = reinterpret_cast<std::uintptr_t>(key);
    return static_cast<std::size_t>(co_mix_address(reinterpret_cast<void const*>(a >> 12))) + ((a >> 4) & 255);
}

template <class K, class V>
class coAddressTable {
    static_assert(std::is_pointer_v<K>, "keys are addresses");
    static_assert(std::is_trivially_copyable_v<V>, "values are copied as bytes when the table grows");

public:
    coAddressTable() = default;
    ~coAddressTable() { std::free(m_slots); }
    coAddressTable(coAddressTable const&) = delete;
    coAddressTable& operator=(coAddressTable const&) = delete;

    // The value for key, or null when absent; never creates an entry.
    V* find(K key) const
    {
        if (!m_slots)
            return nullptr;
        for (std::size_t i = home(key);; i = (i + 1) & m_mask) {
            Slot& slot = m_slots[i];
            if (slot.key == key)
                return key ? &slot.value : nullptr;
            if (!slot.key)
                return nullptr;
        }
    }
    int contains(K key) const { return find(key) != nullptr; }

    // The value for key; an absent key gets an entry holding V() first.
    // A null key has no entry: it answers a scratch value that is not kept.
    V& operator[](K key)
    {
        if (!key) {
            m_scratch = V();
            return m_scratch;
        }
        if (V* found = find(key))
            return *found;
        if ((m_size + 1) * 4 > (m_slots ? m_mask + 1 : 0) * 3)
            grow();
        std::size_t i = home(key);
        while (m_slots[i].key)
            i = (i + 1) & m_mask;
        m_slots[i].key = key;
        m_slots[i].value = V();
        ++m_size;
        return m_slots[i].value;
    }

    // Starts loading the line where key is looked for.
    void prefetch(K key) const
    {
        if (m_slots)
            __builtin_prefetch(&m_slots[home(key)]);
    }

    int size() const { return static_cast<int>(m_size); }
    int empty() const { return m_size == 0; }
    void clear()
    {
        std::free(m_slots);
        m_slots = nullptr;
        m_mask = 0;
        m_size = 0;
    }

    // Every entry, in no particular order; the table must not change meanwhile.
    template <class F>
    void for_each(F&& f) const
    {
        for (std::size_t i = 0; m_slots && i <= m_mask; ++i)
            if (m_slots[i].key)
                f(m_slots[i].key, m_slots[i].value);
    }

private:
    struct Slot {
        K key;  // null: the slot is free
        V value;
    };

    static std::size_t spread(void const* key) { return co_spread_address(key); }
    std::size_t home(K key) const { return spread(static_cast<void const*>(key)) & m_mask; }

    void grow()
    {
        std::size_t count = m_slots ? 2 * (m_mask + 1) : 16;
        Slot* slots = co_zeroed_slots<Slot>(count);
        std::size_t mask = count - 1;
        for (std::size_t j = 0; m_slots && j <= m_mask; ++j) {
            if (!m_slots[j].key)
                continue;
            std::size_t i = spread(static_cast<void const*>(m_slots[j].key)) & mask;
            while (slots[i].key)
                i = (i + 1) & mask;
            slots[i] = m_slots[j];
        }
        std::free(m_slots);
        m_slots = slots;
        m_mask = mask;
    }

    Slot* m_slots = nullptr;
    std::size_t m_mask = 0;  // slot count - 1
    std::size_t m_size = 0;
    V m_scratch{};
};
