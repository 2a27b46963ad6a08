// What the value pool saves: allocating and then freeing a graph's worth of
// 48-byte values (one million) inside a pooled scope, against the same values
// on the heap through the value allocator, and against bare operator new and
// delete for reference.
//
// With glibc's default settings the emptied blocks sit on top of the heap and
// are trimmed back to the system, so every round of the pooled benchmark pays
// fresh page faults for its ~56 MB while the small heap chunks stay cached.
// To compare the allocators themselves, keep the freed memory:
//   GLIBC_TUNABLES=glibc.malloc.trim_threshold=1000000000:glibc.malloc.mmap_threshold=33554432
#include "support/memory_pool.h"

#include <benchmark/benchmark.h>

#include <new>
#include <vector>

namespace {

constexpr int kValues = 1000000;
constexpr std::size_t kValueSize = 48;

void BM_PooledValues(benchmark::State& state)
{
    std::vector<void*> values(kValues);
    for (auto _ : state) {
        stoMemoryPool* pool = nullptr;
        stoMemoryPoolEnabler scope(pool, 0xffc00);
        for (void*& v : values)
            v = sto_value_allocate(pool, kValueSize);
        benchmark::DoNotOptimize(values.data());
        for (void* v : values)
            sto_value_deallocate(pool, v);
    }
    state.SetItemsProcessed(state.iterations() * kValues);
}
BENCHMARK(BM_PooledValues)->Unit(benchmark::kMillisecond);

void BM_HeapValues(benchmark::State& state)
{
    std::vector<void*> values(kValues);
    for (auto _ : state) {
        for (void*& v : values)
            v = sto_value_allocate(nullptr, kValueSize);
        benchmark::DoNotOptimize(values.data());
        for (void* v : values)
            sto_value_deallocate(nullptr, v);
    }
    state.SetItemsProcessed(state.iterations() * kValues);
}
BENCHMARK(BM_HeapValues)->Unit(benchmark::kMillisecond);

void BM_PlainNewDelete(benchmark::State& state)
{
    std::vector<void*> values(kValues);
    for (auto _ : state) {
        for (void*& v : values)
            v = ::operator new(kValueSize);
        benchmark::DoNotOptimize(values.data());
        for (void* v : values)
            ::operator delete(v);
    }
    state.SetItemsProcessed(state.iterations() * kValues);
}
BENCHMARK(BM_PlainNewDelete)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
