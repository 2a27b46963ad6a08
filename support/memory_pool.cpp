#include "support/memory_pool.h"

#include "support/exceptions.h"

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// The layout described in the header relies on these sizes.
constexpr int kHeaderSize = 16;
constexpr int kWordSize = 8;
static_assert(sizeof(void*) == kWordSize, "the word in front of an allocation holds a pointer");
static_assert(sizeof(std::uint64_t) == kWordSize);
static_assert(alignof(std::max_align_t) >= 16, "blocks must come from the heap 16-aligned");

// The magic of a block: a fixed tag in the upper half, the stamp of the pool
// that made the block in the lower half.
constexpr unsigned int kBlockTag = 0x5B0C0000u;
constexpr unsigned int kTagMask = 0xFFFF0000u;

// Words in front of values that are not block addresses. All are odd, so
// none can be mistaken for a block, which is 16-aligned.
constexpr std::uint64_t kHeapMarker = 0x53544F4845415001ull;   // heap value
constexpr std::uint64_t kFreedMarker = 0x53544F4652454503ull;  // freed pooled value
// A request made under a pool that no block can hold (the slots of an array
// of some hundred thousand elements): a heap piece of its own, which may go
// back under any pool or none.
constexpr std::uint64_t kLargeMarker = 0x53544F4C41524705ull;

#ifdef NDEBUG
std::atomic<int> g_checks{0};
#else
std::atomic<int> g_checks{1};
#endif

// Every request is rounded up to keep the next word and payload 8-aligned.
// Widened, so that a request near UINT_MAX cannot wrap to a small one.
long long rounded(unsigned int size)
{
    return (static_cast<long long>(size) + kWordSize - 1) / kWordSize * kWordSize;
}

// Distinguishes pools, so that a block can tell which one made it even after
// that pool is gone and another one took its address. Only the count of
// living blocks depends on it; no memory is freed on its word.
unsigned int next_stamp()
{
    static std::atomic<unsigned int> serial{0};
    return kBlockTag | ((serial.fetch_add(1, std::memory_order_relaxed) + 1) & ~kTagMask);
}

[[noreturn]] void fail(char const* message)
{
    std::fprintf(stderr, "sto memory pool: %s\n", message);
    std::fflush(stderr);
    std::abort();
}

}  // namespace

// ------------------------------------------------------------ stoMemoryBlock

stoMemoryBlock::stoMemoryBlock(int size)
    : m_used(kHeaderSize), m_size(size), m_live(0), m_magic(kBlockTag)
{
    static_assert(sizeof(stoMemoryBlock) == kHeaderSize, "payloads start right behind the header");
}

void* stoMemoryBlock::operator new(std::size_t size, stoPoolAlloc, stoMemoryPool* pool)
{
    std::size_t bytes = pool->block_size() > 0 ? static_cast<std::size_t>(pool->block_size()) : 0;
    if (bytes < size)
        bytes = size;
    return ::operator new(bytes);
}

void stoMemoryBlock::operator delete(void* p, stoPoolAlloc, stoMemoryPool*) { ::operator delete(p); }

void stoMemoryBlock::operator delete(void* p) { ::operator delete(p); }

char* stoMemoryBlock::memory(int offset) { return reinterpret_cast<char*>(this) + offset; }

int stoMemoryBlock::enough_space_left(unsigned int size) const
{
    return static_cast<long long>(m_size) - m_used >= rounded(size) + kWordSize;
}

void* stoMemoryBlock::allocate(unsigned int size)
{
    if (!enough_space_left(size))
        return nullptr;
    char* word = memory(m_used);
    stoMemoryBlock* self = this;
    std::memcpy(word, &self, kWordSize);
    ++m_live;
    m_used += static_cast<int>(rounded(size)) + kWordSize;
    return word + kWordSize;
}

int stoMemoryBlock::deallocate(void* p)
{
    // The space is never reused, but its word is overwritten, so that a second
    // free of the same allocation is recognised rather than counted again.
    std::memcpy(static_cast<char*>(p) - kWordSize, &kFreedMarker, kWordSize);
    return --m_live;
}

stoMemoryBlock* stoMemoryBlock::block_from_address(void* p)
{
    stoMemoryBlock* block;
    std::memcpy(&block, static_cast<char*>(p) - kWordSize, kWordSize);
    return block;
}

// ------------------------------------------------------------- stoMemoryPool

stoMemoryPool::stoMemoryPool(int block_size)
    : m_block_size(block_size), m_current(nullptr), m_enabled(0), m_live_blocks(0), m_stamp(next_stamp())
{
}

int stoMemoryPool::enable_memory_pool(int on)
{
    int previous = m_enabled;
    m_enabled = on ? 1 : 0;
    return previous;
}

void* stoMemoryPool::allocate(unsigned int size)
{
    if (!m_enabled)
        return ::operator new(size);
    if (!m_current || !m_current->enough_space_left(size)) {
        // A request that even an empty block cannot hold gets no block: the
        // block would stay empty, and nothing would ever release it.
        if (static_cast<long long>(m_block_size) - kHeaderSize < rounded(size) + kWordSize)
            return nullptr;
        // The previous current block stays as it is; its own last free
        // releases it.
        m_current = new (stoPoolAllocTag, this) stoMemoryBlock(m_block_size);
        m_current->m_magic = m_stamp;
        ++m_live_blocks;
    }
    return m_current->allocate(size);
}

void stoMemoryPool::deallocate(void* p)
{
    if (!p)
        return;
    if (!m_enabled) {
        ::operator delete(p);
        return;
    }
    stoMemoryBlock* block = checked_block(p);
    if (!block) {
        if (g_checks.load(std::memory_order_relaxed))
            fail("deallocate of an address that is not a live allocation of a pool block");
        return;  // freeing through an unknown word could only corrupt memory
    }
    free_in_block(block, p, this);
}

int stoMemoryPool::owns(stoMemoryBlock const* block) const { return block->m_magic == m_stamp; }

stoMemoryBlock* stoMemoryPool::checked_block(void* p)
{
    std::uintptr_t word;
    std::memcpy(&word, static_cast<char*>(p) - kWordSize, kWordSize);
    std::uintptr_t address = reinterpret_cast<std::uintptr_t>(p);
    // Only what lies a block's size below p is looked at, so a garbage word
    // is mostly refused before it is followed.
    if (word == 0 || word % 16 != 0 || word >= address || address - word > static_cast<std::uintptr_t>(INT_MAX))
        return nullptr;
    stoMemoryBlock* block = reinterpret_cast<stoMemoryBlock*>(word);
    if ((block->m_magic & kTagMask) != kBlockTag)
        return nullptr;
    std::uintptr_t offset = address - word;
    if (block->m_live <= 0 || block->m_used > block->m_size || offset < kHeaderSize + kWordSize ||
        offset > static_cast<std::uintptr_t>(block->m_used))
        return nullptr;
    return block;
}

void stoMemoryPool::free_in_block(stoMemoryBlock* block, void* p, stoMemoryPool* installed)
{
    if (block->deallocate(p) > 0)
        return;
    if (installed) {
        // Any pool's current block is alive, so only the owner can hold this
        // one as current; the stamp tells whether the count is the owner's.
        if (installed->m_current == block)
            installed->m_current = nullptr;
        if (installed->owns(block))
            --installed->m_live_blocks;
    }
    delete block;
}

// ------------------------------------------------------ stoMemoryPoolEnabler

stoMemoryPoolEnabler::stoMemoryPoolEnabler(stoMemoryPool*& pool, int block_size)
    : m_pool(pool), m_nested(pool != nullptr)
{
    if (m_nested)
        return;
    pool = new stoMemoryPool(block_size);
    pool->enable_memory_pool(1);
}

stoMemoryPoolEnabler::~stoMemoryPoolEnabler()
{
    if (m_nested)
        return;
    delete m_pool;
    m_pool = nullptr;
}

// ------------------------------------------------------- the value allocator

void* sto_value_allocate(stoMemoryPool* pool, std::size_t size)
{
    bool pooled = pool && pool->m_enabled;
    if (pooled && size <= UINT_MAX) {
        if (void* p = pool->allocate(static_cast<unsigned int>(size)))
            return p;
    }
    if (size > SIZE_MAX - kWordSize)
        throw std::bad_alloc();
    char* word = static_cast<char*>(::operator new(size + kWordSize));
    std::memcpy(word, pooled ? &kLargeMarker : &kHeapMarker, kWordSize);
    return word + kWordSize;
}

void sto_value_deallocate(stoMemoryPool* installed, void* p)
{
    if (!p)
        return;
    char* word = static_cast<char*>(p) - kWordSize;
    std::uint64_t tag;
    std::memcpy(&tag, word, kWordSize);
    int checks = g_checks.load(std::memory_order_relaxed);

    if (tag == kHeapMarker) {
        // A disabled pool allocates from the heap, so under it heap values
        // are in their place.
        if (checks && installed && installed->m_enabled)
            fail("a value allocated from the heap is freed while a memory pool is installed "
                 "(it was allocated before the pool's scope began)");
        ::operator delete(word);
        return;
    }
    if (tag == kLargeMarker) {
        ::operator delete(word);
        return;
    }
    if (tag == kFreedMarker) {
        if (checks)
            fail("a pooled value is freed twice");
        return;
    }
    stoMemoryBlock* block = stoMemoryPool::checked_block(p);
    if (!block) {
        if (checks)
            fail("a value is freed whose allocation word is unknown "
                 "(not a value, or the memory in front of it was overwritten)");
        return;  // leaking is the only safe answer to an unknown word
    }
    if (checks) {
        if (!installed)
            fail("a value allocated from a memory pool is freed with no memory pool installed "
                 "(it outlived its pool's scope)");
        if (!installed->owns(block))
            fail("a value allocated from a memory pool is freed under a different memory pool");
    }
    stoMemoryPool::free_in_block(block, p, installed);
}

int sto_value_allocator_checks(int on)
{
    return g_checks.exchange(on ? 1 : 0, std::memory_order_relaxed);
}

// ---------------------------------------------------------------- the sizes

int streamsize_to_stoMemorySize(long long size)
{
    if (size < INT_MIN || size > INT_MAX)
        throw new stoFileTooLargeException();
    return static_cast<int>(size);
}

long long stoMemorySize_to_streamsize(int size) { return size; }
