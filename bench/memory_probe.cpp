// The machine's own cost of scattered memory access, without sto: random
// 8-byte reads over buffers of the sizes that converting 100k- and 1M-item
// documents touch, with small pages and with transparent huge pages. The
// conversion bench's step from 100k to 1M items is to be read against this
// one: a step that shows here too belongs to the machine, not to sto.
//
//   sto_bench_memory_probe               # 200 MB and 2000 MB
//   sto_bench_memory_probe --mb 24 --mb 200 --rounds 3
//
// Independent reads can overlap their misses, as a conversion's prefetched
// reads do; dependent reads (each address read from the previous one) show
// the full latency. Times are CPU time of the process, per read.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace {

double cpu_seconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// The process's memory in transparent huge pages, in MB, or -1 when the
// system does not say.
long huge_page_mb()
{
    std::ifstream rollup("/proc/self/smaps_rollup");
    std::string line;
    while (std::getline(rollup, line))
        if (line.compare(0, 14, "AnonHugePages:") == 0)
            return std::atol(line.c_str() + 14) / 1024;
    return -1;
}

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

// xorshift64: cheap enough not to hide the misses it causes.
struct Random {
    std::uint64_t x = 88172645463325252ull;
    std::uint64_t next()
    {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        return x;
    }
};

void probe(std::size_t mb, bool huge)
{
    constexpr std::size_t kHuge = std::size_t(2) << 20;
    std::size_t bytes = std::max<std::size_t>(mb << 20, kHuge);
    bytes = (bytes + kHuge - 1) / kHuge * kHuge;
    std::unique_ptr<std::uint64_t[], FreeDeleter> owner(static_cast<std::uint64_t*>(std::aligned_alloc(kHuge, bytes)));
    std::uint64_t* a = owner.get();
    if (!a) {
        std::printf("%6zu MB: no memory\n", mb);
        return;
    }
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    madvise(a, bytes, huge ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
#endif
    std::size_t n = bytes / sizeof(std::uint64_t);
    std::size_t lines = bytes / 64;
    // Each line's first word holds the index of the next line of one random
    // cycle through all lines, for the dependent reads.
    std::vector<std::uint32_t> order(lines);
    for (std::size_t i = 0; i < lines; ++i)
        order[i] = static_cast<std::uint32_t>(i);
    Random r;
    for (std::size_t i = lines - 1; i > 0; --i)
        std::swap(order[i], order[r.next() % (i + 1)]);
    std::memset(a, 0, bytes);
    for (std::size_t i = 0; i < lines; ++i)
        a[order[i] * 8u] = order[(i + 1) % lines] * 8u;
    order = {};

    constexpr std::size_t kReads = 20000000;
    std::uint64_t sum = 0;
    double t0 = cpu_seconds();
    for (std::size_t i = 0; i < kReads; ++i)
        sum += a[r.next() % n];
    double t1 = cpu_seconds();
    constexpr std::size_t kChase = 5000000;
    std::uint64_t p = 0;
    for (std::size_t i = 0; i < kChase; ++i)
        p = a[p];
    double t2 = cpu_seconds();
    // The kernel may not find the huge pages asked for; say how many it did.
    std::printf("%6zu MB, %s pages: independent reads %5.1f ns, dependent reads %6.1f ns (%ld MB in huge pages)%s\n",
                mb, huge ? "huge " : "small", 1e9 * (t1 - t0) / kReads, 1e9 * (t2 - t1) / kChase, huge_page_mb(),
                (sum ^ p) == 1 ? " " : "");  // keeps the reads from being optimised away
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::size_t> sizes;
    int rounds = 1;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--mb") && i + 1 < argc && std::atol(argv[i + 1]) > 0)
            sizes.push_back(static_cast<std::size_t>(std::atol(argv[++i])));
        else if (!std::strcmp(argv[i], "--rounds") && i + 1 < argc && std::atoi(argv[i + 1]) > 0)
            rounds = std::atoi(argv[++i]);
        else {
            std::fprintf(stderr, "usage: %s [--mb N]... [--rounds R]\n", argv[0]);
            return 2;
        }
    }
    if (sizes.empty())
        sizes = {200, 2000};
    for (int round = 0; round < rounds; ++round)
        for (std::size_t mb : sizes)
            for (bool huge : {false, true})
                probe(mb, huge);
    return 0;
}
