// The value memory pool: the block arithmetic of the 64-bit layout, blocks going back to the heap with
// their last allocation, the disabled pool and the enabler scopes, the stream size conversions, and the
// value allocator that frees every value through whatever made it.
#include "test_support.h"

#include "support/memory_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>
#include <random>
#include <set>
#include <vector>

namespace {

// Reaches the protected parts of a block through the members' own class.
class BlockProbe : public stoMemoryBlock {
public:
    static stoMemoryBlock* block_of(void* p) { return block_from_address(p); }
    static int used(stoMemoryBlock* b) { return b->*(&BlockProbe::m_used); }
    static int live(stoMemoryBlock* b) { return b->*(&BlockProbe::m_live); }
    static int has_room(stoMemoryBlock* b, unsigned n) { return (b->*(&BlockProbe::enough_space_left))(n); }
};

long offset_in(stoMemoryBlock* b, void* p) { return static_cast<char*>(p) - reinterpret_cast<char*>(b); }
long offset_in_own_block(void* p) { return offset_in(BlockProbe::block_of(p), p); }
bool aligned8(void* p) { return reinterpret_cast<std::uintptr_t>(p) % 8 == 0; }

}  // namespace

TEST(MemoryPool, AllocationsBumpThroughAlignedSlotsAndOpenANewBlockWhenFull)
{
    stoMemoryPool pool(64);
    EXPECT_EQ(pool.enable_memory_pool(1), 0);

    // 16 header bytes, then the 8-byte word, then the payload rounded up to
    // 8 bytes, so that what follows stays aligned.
    struct Step {
        unsigned int size;
        std::size_t block;  // index among the blocks seen so far
        long offset;
        int used;
    } const steps[] = {
        {8, 0, 24, 32}, {8, 0, 40, 48},
        {24, 1, 24, 48},  // needs 32, 16 remain in the first block
        {3, 1, 56, 64},   // the second block's last 16 bytes exactly
        {5, 2, 24, 32},   {1, 2, 40, 48},
    };
    std::vector<void*> p;
    std::vector<stoMemoryBlock*> blocks;
    for (Step const& step : steps) {
        p.push_back(pool.allocate(step.size));
        stoMemoryBlock* block = BlockProbe::block_of(p.back());
        if (step.block == blocks.size())
            blocks.push_back(block);
        SCOPED_TRACE(p.size());
        EXPECT_EQ(block, blocks[step.block]);
        EXPECT_EQ(offset_in(block, p.back()), step.offset);
        EXPECT_EQ(BlockProbe::used(block), step.used);
        EXPECT_EQ(pool.live_blocks(), static_cast<int>(blocks.size()));
    }
    // 16 bytes left: exactly one word and 8 bytes; 9 bytes round up to 16.
    EXPECT_TRUE(BlockProbe::has_room(blocks[0], 8));
    EXPECT_FALSE(BlockProbe::has_room(blocks[0], 9));

    // Freeing all allocations of a block releases it, whichever goes last.
    pool.deallocate(p[0]);
    EXPECT_EQ(pool.live_blocks(), 3);
    pool.deallocate(p[1]);
    EXPECT_EQ(pool.live_blocks(), 2);
    pool.deallocate(p[3]);
    pool.deallocate(p[2]);
    EXPECT_EQ(pool.live_blocks(), 1);
    // Emptying the current block releases it too; the pool must then start
    // a fresh block instead of bumping through the released one.
    pool.deallocate(p[5]);
    pool.deallocate(p[4]);
    pool.deallocate(nullptr);
    EXPECT_EQ(pool.live_blocks(), 0);

    // 64 - 16 header - 8 word leaves 40 bytes of payload at most: a request
    // beyond that gets null and no block, and rounding it must not wrap
    // around to a small one.
    void* full = pool.allocate(40);
    ASSERT_NE(full, nullptr);
    EXPECT_EQ(offset_in_own_block(full), 24);
    EXPECT_FALSE(BlockProbe::has_room(BlockProbe::block_of(full), 0));
    for (unsigned int n : {41u, UINT_MAX, UINT_MAX - 6})
        EXPECT_EQ(pool.allocate(n), nullptr) << n;
    EXPECT_EQ(pool.live_blocks(), 1);
    pool.deallocate(full);
    EXPECT_EQ(pool.live_blocks(), 0);
}

TEST(MemoryPool, ADisabledPoolHandsOutAndTakesBackHeapMemory)
{
    stoMemoryPool pool(64);
    // Larger than any block could hold, so it can only come from the heap.
    void* big = pool.allocate(100);
    std::memset(big, 0xab, 100);
    EXPECT_EQ(pool.live_blocks(), 0);
    pool.deallocate(big);

    pool.enable_memory_pool(1);
    void* pooled = pool.allocate(8);
    stoMemoryBlock* block = BlockProbe::block_of(pooled);
    EXPECT_EQ(pool.enable_memory_pool(0), 1);
    EXPECT_EQ(pool.enable_memory_pool(0), 0);

    void* heap = pool.allocate(8);
    std::memset(heap, 0, 8);
    EXPECT_EQ(BlockProbe::used(block), 32);
    pool.deallocate(heap);
    EXPECT_EQ(BlockProbe::live(block), 1);

    // Enabled again, the pool goes on bumping through its current block.
    EXPECT_EQ(pool.enable_memory_pool(5), 0);
    EXPECT_EQ(pool.enabled(), 1);
    void* next = pool.allocate(8);
    EXPECT_EQ(offset_in(block, next), 40);
    pool.deallocate(pooled);
    pool.deallocate(next);
    EXPECT_EQ(pool.live_blocks(), 0);
}

TEST(MemoryPool, NestedEnablersShareTheOuterPoolAndOnlyTheOuterDeletesIt)
{
    stoMemoryPool* installed = nullptr;
    {
        stoMemoryPoolEnabler outer(installed, 64);
        ASSERT_NE(installed, nullptr);
        stoMemoryPool* pool = installed;
        void* kept = pool->allocate(8);
        {
            stoMemoryPoolEnabler inner(installed, 4096);
            EXPECT_EQ(installed, pool);
        }
        // The pool is still there and still the same.
        ASSERT_EQ(installed, pool);
        EXPECT_EQ(pool->live_blocks(), 1);
        pool->deallocate(kept);
        EXPECT_EQ(pool->live_blocks(), 0);
    }
    EXPECT_EQ(installed, nullptr);

    // A failure that leaves the scope deletes the pool on its way out.
    try {
        stoMemoryPoolEnabler scope(installed, 64);
        ASSERT_NE(installed, nullptr);
        throw 42;
    } catch (int) {
    }
    EXPECT_EQ(installed, nullptr);
}

TEST(MemoryPool, StreamSizesConvertOnlyWithinTheSigned32BitRange)
{
    for (long long fits : {2147483647LL, -1LL, -2147483648LL, 0LL}) {
        EXPECT_EQ(streamsize_to_stoMemorySize(fits), fits);
        EXPECT_EQ(stoMemorySize_to_streamsize(static_cast<int>(fits)), fits);
    }
    for (long long too_large : {2147483648LL, -2147483649LL, LLONG_MAX, LLONG_MIN, 4294967296LL})
        EXPECT_NE(sto_test::caught<stoFileTooLargeException>([&] { streamsize_to_stoMemorySize(too_large); }),
                  nullptr)
            << too_large;
}

TEST(MemoryPool, ManyAllocationsAcrossManyBlocksStayDisjointAndAllGoBack)
{
    stoMemoryPool pool(1024);
    pool.enable_memory_pool(1);
    std::vector<std::pair<unsigned char*, unsigned int>> all;  // address, size
    for (int i = 0; i < 20000; ++i) {
        unsigned int size = static_cast<unsigned int>(i * 7 % 57 + 1);
        auto* p = static_cast<unsigned char*>(pool.allocate(size));
        ASSERT_TRUE(p && aligned8(p) && offset_in_own_block(p) >= 24 && offset_in_own_block(p) + size <= 1024)
            << i;
        std::memset(p, i & 0xff, size);
        all.emplace_back(p, size);
    }
    // Nothing written later overwrote anything written earlier.
    std::set<stoMemoryBlock*> blocks;
    for (std::size_t i = 0; i < all.size(); ++i) {
        auto [p, size] = all[i];
        ASSERT_EQ(std::count(p, p + size, static_cast<unsigned char>(i & 0xff)), long(size)) << i;
        blocks.insert(BlockProbe::block_of(p));
    }
    EXPECT_EQ(pool.live_blocks(), static_cast<int>(blocks.size()));
    std::shuffle(all.begin(), all.end(), std::mt19937(20240517));
    for (auto const& a : all)
        pool.deallocate(a.first);
    EXPECT_EQ(pool.live_blocks(), 0);
}

TEST(MemoryPool, ValuesComeFromBlocksInsideAScopeAndFromTheHeapOutside)
{
    // No pool: heap values, 8-aligned, freed with no pool installed.
    void* heap = sto_value_allocate(nullptr, 48);
    void* empty = sto_value_allocate(nullptr, 0);
    EXPECT_TRUE(aligned8(heap));
    std::memset(heap, 0x5a, 48);
    sto_value_deallocate(nullptr, heap);
    sto_value_deallocate(nullptr, empty);
    sto_value_deallocate(nullptr, nullptr);

    stoMemoryPool* installed = nullptr;
    {
        stoMemoryPoolEnabler scope(installed, 0xffc00);
        void* v1 = sto_value_allocate(installed, 48);
        void* v2 = sto_value_allocate(installed, 40);
        EXPECT_EQ(offset_in(BlockProbe::block_of(v1), v2), 80);
        std::memset(v1, 1, 48);
        std::memset(v2, 2, 40);
        sto_value_deallocate(installed, v2);
        EXPECT_EQ(installed->live_blocks(), 1);
        sto_value_deallocate(installed, v1);
        EXPECT_EQ(installed->live_blocks(), 0);
    }

    // A disabled pool gives heap values, and freeing them under it is right.
    // Disabling stops new pooled values; those made before still belong to
    // the pool and go back into their block.
    stoMemoryPool pool(4096);
    void* off = sto_value_allocate(&pool, 48);
    std::memset(off, 3, 48);
    pool.enable_memory_pool(1);
    void* on = sto_value_allocate(&pool, 48);
    EXPECT_EQ(pool.live_blocks(), 1);
    pool.enable_memory_pool(0);
    sto_value_deallocate(&pool, off);
    sto_value_deallocate(&pool, on);
    EXPECT_EQ(pool.live_blocks(), 0);

    // A request no block can hold (the slots of a large array) gets a heap
    // piece of its own and opens no block; it may go back inside the scope
    // or after it.
    void* inside;
    void* outside;
    {
        stoMemoryPoolEnabler scope(installed, 64);
        inside = sto_value_allocate(installed, 41);
        outside = sto_value_allocate(installed, 1 << 20);
        std::memset(inside, 4, 41);
        std::memset(outside, 5, 1 << 20);
        EXPECT_EQ(installed->live_blocks(), 0);
        sto_value_deallocate(installed, inside);
    }
    sto_value_deallocate(nullptr, outside);
}

TEST(MemoryPool, ValuesFreedUnderTheWrongPoolStillGoBackToWhatMadeThem)
{
    int checks = sto_value_allocator_checks(0);  // these frees are in the wrong place on purpose
    stoMemoryPool* installed = nullptr;
    void* before = sto_value_allocate(nullptr, 48);
    void *a1, *a2, *b1;
    {
        stoMemoryPoolEnabler scope(installed, 4096);
        a1 = sto_value_allocate(installed, 48);
        a2 = sto_value_allocate(installed, 48);
        // A heap value freed inside a scope goes back to the heap.
        sto_value_deallocate(installed, before);
        EXPECT_EQ(installed->live_blocks(), 1);
    }
    {
        stoMemoryPoolEnabler scope(installed, 4096);
        b1 = sto_value_allocate(installed, 48);
    }
    std::memset(a1, 1, 48);
    std::memset(b1, 2, 48);
    {
        stoMemoryPoolEnabler scope(installed, 4096);
        void* fresh = sto_value_allocate(installed, 48);
        // The orphaned block of the first scope goes back with its last value;
        // that block was never this pool's, so its count stays.
        sto_value_deallocate(installed, a1);
        sto_value_deallocate(installed, a2);
        EXPECT_EQ(installed->live_blocks(), 1);
        void* next = sto_value_allocate(installed, 48);
        EXPECT_EQ(BlockProbe::block_of(next), BlockProbe::block_of(fresh));
        EXPECT_EQ(offset_in_own_block(next), 24 + 56);
        sto_value_deallocate(installed, fresh);
        sto_value_deallocate(installed, next);
        EXPECT_EQ(installed->live_blocks(), 0);
    }
    // With no pool left at all, the block frees itself (the leak checker
    // would report it otherwise).
    sto_value_deallocate(nullptr, b1);
    sto_value_allocator_checks(checks);
}

#ifndef NDEBUG

TEST(MemoryPoolDeathTest, MisplacedFreesAbortWithAMessageInDebugBuilds)
{
    EXPECT_DEATH(
        {
            stoMemoryPool* installed = nullptr;
            void* v;
            {
                stoMemoryPoolEnabler scope(installed, 4096);
                v = sto_value_allocate(installed, 48);
            }
            sto_value_deallocate(installed, v);
        },
        "allocated from a memory pool is freed with no memory pool installed");
    EXPECT_DEATH(
        {
            void* v = sto_value_allocate(nullptr, 48);
            stoMemoryPool* installed = nullptr;
            stoMemoryPoolEnabler scope(installed, 4096);
            sto_value_deallocate(installed, v);
        },
        "allocated from the heap is freed while a memory pool is installed");
    EXPECT_DEATH(
        {
            stoMemoryPool maker(4096);
            stoMemoryPool other(4096);
            maker.enable_memory_pool(1);
            other.enable_memory_pool(1);
            sto_value_deallocate(&other, sto_value_allocate(&maker, 48));
        },
        "freed under a different memory pool");
    EXPECT_DEATH(
        {
            stoMemoryPool pool(4096);
            pool.enable_memory_pool(1);
            void* keeps_block_alive = sto_value_allocate(&pool, 48);
            void* v = sto_value_allocate(&pool, 48);
            sto_value_deallocate(&pool, v);
            sto_value_deallocate(&pool, v);
            sto_value_deallocate(&pool, keeps_block_alive);
        },
        "freed twice");
    // A word that points at 16-aligned memory just below the value, laid out
    // like a block header with one live allocation, but without the magic.
    EXPECT_DEATH(
        {
            alignas(16) unsigned char fake[64] = {};
            int used = 48;
            int size = 64;
            int live = 1;
            std::memcpy(fake, &used, sizeof used);
            std::memcpy(fake + 4, &size, sizeof size);
            std::memcpy(fake + 8, &live, sizeof live);
            unsigned char* start = fake;
            std::memcpy(fake + 32, &start, sizeof start);
            sto_value_deallocate(nullptr, fake + 40);
        },
        "allocation word is unknown");
    EXPECT_DEATH(
        {
            alignas(16) unsigned char garbage[32] = {};
            std::memset(garbage, 0x2a, 16);
            sto_value_deallocate(nullptr, garbage + 16);
        },
        "allocation word is unknown");
}

#endif
