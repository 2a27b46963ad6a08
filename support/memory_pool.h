// The value memory pool. While a write or a read through a proxy runs, the
// many small value objects it builds come from large blocks, where an
// allocation is a bump of an offset and a free only decrements a counter; a
// block goes back to the heap as a whole when its last value goes. The pool
// exists only inside the scope of a stoMemoryPoolEnabler; outside it values
// live on the ordinary heap.
//
// Layout on 64-bit machines. Values hold pointers and doubles, so every
// allocation must be 8-byte aligned:
//
//   block:      [used|size|live|magic][word|payload][word|payload]...
//                 16-byte header        8 + n rounded up to a multiple of 8
//
// The header is four 4-byte fields; the fourth is padding that keeps the
// payloads 8-byte aligned and carries a magic number, so that a word that
// claims to be a block address can be checked. `used` is 16 in an empty
// block. The word in front of each allocation is the block's address (8
// bytes). Blocks are one heap piece of block-size bytes, aligned to at least
// 16. With a block size of 64, two 8-byte allocations land at block+24 and
// block+40; a 24-byte one then needs 32 bytes, only 16 remain, and it opens
// a second block.
//
//   stoMemoryPool* pool = nullptr;
//   {
//       stoMemoryPoolEnabler scope(pool, 0xffc00);
//       void* v = sto_value_allocate(pool, 48);   // from a block
//       sto_value_deallocate(pool, v);            // the block goes back
//   }                                             // pool deleted, null again
#pragma once

#include <cstddef>
#include <cstring>

class stoMemoryPool;

enum stoPoolAlloc { stoPoolAllocTag };

class stoMemoryBlock {
    friend class stoMemoryPool;

protected:
    explicit stoMemoryBlock(int size);
    stoMemoryBlock(stoMemoryBlock const&) = delete;
    stoMemoryBlock& operator=(stoMemoryBlock const&) = delete;

    // A block is always the pool's block size, header included, in one heap
    // piece, whatever size the expression asks for.
    static void* operator new(std::size_t size, stoPoolAlloc, stoMemoryPool* pool);
    static void operator delete(void* p, stoPoolAlloc, stoMemoryPool* pool);
    static void operator delete(void* p);

    // Null when the request does not fit in the space left.
    void* allocate(unsigned int size);
    // Returns the number of allocations still alive in the block.
    int deallocate(void* p);
    int enough_space_left(unsigned int size) const;
    // The block an allocation lies in, read from the word in front of it.
    static stoMemoryBlock* block_from_address(void* p);

    int m_used;             // offset of the first free byte
    int m_size;             // the block size, i.e. the end offset
    int m_live;             // allocations not yet freed
    unsigned int m_magic;   // block tag and the stamp of the owning pool

private:
    char* memory(int offset);
};

class stoMemoryPool {
public:
    // An empty, disabled pool; nothing is taken from the heap until the
    // first pooled allocation.
    explicit stoMemoryPool(int block_size);
    // Releases nothing: blocks go back as their last allocations are freed.
    ~stoMemoryPool() = default;
    stoMemoryPool(stoMemoryPool const&) = delete;
    stoMemoryPool& operator=(stoMemoryPool const&) = delete;

    // Returns the previous flag. A disabled pool hands out and takes back
    // plain heap memory, so what it allocated while enabled must be freed
    // while it is enabled (the value allocator below has no such limit).
    int enable_memory_pool(int on);
    // Null when the request cannot fit even an empty block.
    void* allocate(unsigned int size);
    // The common case of the value allocator, inline: a bump in the current
    // block of an enabled pool. Null when that does not serve (no block yet,
    // not enough room, pool disabled); the caller then takes the full path.
    void* bump(std::size_t size)
    {
        stoMemoryBlock* block = m_current;
        if (!m_enabled || !block || size > static_cast<std::size_t>(block->m_size))
            return nullptr;
        int need = static_cast<int>((size + 7) / 8 * 8) + 8;
        if (block->m_size - block->m_used < need)
            return nullptr;
        char* word = reinterpret_cast<char*>(block) + block->m_used;
        std::memcpy(word, &block, sizeof block);
        ++block->m_live;
        block->m_used += need;
        return word + 8;
    }
    void deallocate(void* p);

    int block_size() const { return m_block_size; }
    int live_blocks() const { return m_live_blocks; }
    int enabled() const { return m_enabled; }

private:
    friend void* sto_value_allocate(stoMemoryPool* pool, std::size_t size);
    friend void sto_value_deallocate(stoMemoryPool* pool, void* p);

    int owns(stoMemoryBlock const* block) const;
    // The block of a live pooled allocation, or null when the word in front
    // of `p` is not the address of a plausible block.
    static stoMemoryBlock* checked_block(void* p);
    // Frees one allocation of `block`; when it was the last one the block goes
    // back to the heap, and `installed`, if any, forgets it.
    static void free_in_block(stoMemoryBlock* block, void* p, stoMemoryPool* installed);

    int m_block_size;
    stoMemoryBlock* m_current;  // where new allocations come from, or null
    int m_enabled;
    int m_live_blocks;
    unsigned int m_stamp;       // written into the magic of this pool's blocks
};

// The scope of pooled allocation. The outermost enabler over a null pool
// pointer creates, installs and enables a pool and deletes it again (leaving
// the pointer null) when the scope ends, also when it ends by an exception.
// Enablers nested inside it find the pointer set and do nothing.
class stoMemoryPoolEnabler {
public:
    stoMemoryPoolEnabler(stoMemoryPool*& pool, int block_size);
    ~stoMemoryPoolEnabler();
    stoMemoryPoolEnabler(stoMemoryPoolEnabler const&) = delete;
    stoMemoryPoolEnabler& operator=(stoMemoryPoolEnabler const&) = delete;

private:
    stoMemoryPool*& m_pool;
    int m_nested;
};

// The allocator behind stoValue::operator new and delete; `pool` is the pool
// pointer installed at the time of the call (null outside every scope).
//
// Every value carries the 8-byte word in front of it: pooled values their
// block's address, heap values (no pool installed, or a disabled one) a fixed
// marker. Deallocation reads that word and frees through the allocator that
// really made the value, whatever pool is installed now, so memory is never
// corrupted: a value that outlives its scope still frees its block, and a
// heap value freed inside a scope still goes back to the heap. Such a
// mismatch is nevertheless a mistake of the caller, so while the allocator
// checks are on (the default unless NDEBUG is defined) it is reported on
// stderr and the process aborts, as are an unknown word and a value freed
// twice.
//
// A pooled request that would not fit in an empty block (the slots of an
// array of more than some hundred thousand elements) gets a heap piece of
// its own, marked as such, which may be freed under any pool or none.
void* sto_value_allocate(stoMemoryPool* pool, std::size_t size);
void sto_value_deallocate(stoMemoryPool* pool, void* p);
// Switches the checks on or off and returns the previous setting; with the
// checks off mistakes are still freed correctly, just silently.
int sto_value_allocator_checks(int on);

// A count of bytes held in memory: files are read whole, so their sizes must
// fit a signed 32-bit int.
using stoMemorySize = int;

// Throws a new stoFileTooLargeException outside the signed 32-bit range.
int streamsize_to_stoMemorySize(long long size);
long long stoMemorySize_to_streamsize(int size);
