// Store files against two general-purpose serialisation libraries: the same
// generated sample document written to memory and read back by sto, by
// Boost.Serialization's text archive and by cereal's JSON archive, the last
// two through a mirror of the document in plain C++ classes
// (mirror_model.h, mirror_boost.h, mirror_cereal.h).
//
//   sto_bench_file_bench                               # 10k, 100k, 1M items, best of 3
//   sto_bench_file_bench --items 1000,20000 --repeat 5
//   sto_bench_file_bench --items 100000 --libraries sto  # sto alone, e.g. under a profiler
//   sto_bench_file_bench --items 100 --dump /tmp/doc     # also saves /tmp/doc.100.sto, ...
//
// Per document size and library, two phases:
// - write: from the live document to the text of the file in memory (for
//   sto: analysis and writing, the writer's clean-up included);
// - read: from that text in memory to a fresh live document (for sto: the
//   reader over a memory map and synthesis), the reader's clean-up included,
//   the deletion of the new document not.
// Each phase is timed `repeat` times and the best time is kept. Times are the
// CPU time of the process (user and system), which a machine shared with
// other work disturbs far less than the elapsed time; the elapsed time is
// shown beside it. Throughput is in objects per CPU second, objects being the
// live objects of the document as sample_census() counts them (embedded
// objects and array elements included, shared objects once), the same for
// every library; and in MB of text per CPU second.
//
// Memory: this program interposes malloc and its relatives (everything,
// operator new, the standard streams and the libraries included, allocates
// through them) and keeps the bytes live on the heap, by usable block size,
// and their high-water mark. A phase's peak is the high-water mark it reaches
// above what was live when it started; it includes what the phase leaves
// behind: the text of the file for a write, the new document for a read.
// Text is written into a chain of 1 MiB blocks, so no library pays for a
// growing string's copies. Memory mapped other than through malloc is not
// seen (none of the three maps any).
//
// Checks, outside the timings, on the first repetition: the document sto
// reads equals the original (sample_equal); the mirror each library reads
// writes again to the same bytes; the mirror has as many objects as the
// census. A failed check ends the program with status 1. The targets at the
// end are reported, not enforced.
#include "mirror_boost.h"
#include "mirror_cereal.h"
#include "mirror_model.h"
#include "sample.h"

#include <sto.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <istream>
#include <malloc.h>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

// ------------------------------------------------------------ heap accounting

#if defined(__SANITIZE_ADDRESS__)
#define FILE_BENCH_COUNTS_HEAP 0
#else
#define FILE_BENCH_COUNTS_HEAP 1
#endif

namespace {
// Bytes live on the heap and their high-water mark. The program has one
// thread.
long long g_live = 0;
long long g_peak = 0;
}  // namespace

#if FILE_BENCH_COUNTS_HEAP

extern "C" {
void* __libc_malloc(std::size_t);
void __libc_free(void*);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
}

namespace {

inline void* counted(void* p)
{
    if (p) {
        g_live += static_cast<long long>(malloc_usable_size(p));
        if (g_live > g_peak)
            g_peak = g_live;
    }
    return p;
}

inline void uncount(void* p)
{
    if (p)
        g_live -= static_cast<long long>(malloc_usable_size(p));
}

inline bool valid_alignment(std::size_t a) { return a >= sizeof(void*) && (a & (a - 1)) == 0; }

}  // namespace

extern "C" {

void* malloc(std::size_t n) noexcept { return counted(__libc_malloc(n)); }

void free(void* p) noexcept
{
    uncount(p);
    __libc_free(p);
}

void* calloc(std::size_t n, std::size_t m) noexcept { return counted(__libc_calloc(n, m)); }

void* realloc(void* p, std::size_t n) noexcept
{
    if (!p)
        return malloc(n);
    long long old = static_cast<long long>(malloc_usable_size(p));
    void* q = __libc_realloc(p, n);
    if (q || n == 0) {
        g_live -= old;
        counted(q);
    }
    return q;
}

void* reallocarray(void* p, std::size_t n, std::size_t m) noexcept
{
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(n, m, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    return realloc(p, bytes);
}

void* memalign(std::size_t a, std::size_t n) noexcept { return counted(__libc_memalign(a, n)); }

void* aligned_alloc(std::size_t a, std::size_t n) noexcept { return counted(__libc_memalign(a, n)); }

int posix_memalign(void** out, std::size_t a, std::size_t n) noexcept
{
    if (!valid_alignment(a))
        return EINVAL;
    void* p = counted(__libc_memalign(a, n));
    if (!p)
        return ENOMEM;
    *out = p;
    return 0;
}

void* valloc(std::size_t n) noexcept { return counted(__libc_memalign(4096, n)); }

void* pvalloc(std::size_t n) noexcept { return counted(__libc_memalign(4096, (n + 4095) & ~std::size_t(4095))); }

}  // extern "C"

#endif  // FILE_BENCH_COUNTS_HEAP

namespace {

using Clock = std::chrono::steady_clock;

double cpu_seconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// CPU and elapsed time since construction.
class Stopwatch {
public:
    Stopwatch() : m_cpu(cpu_seconds()), m_wall(Clock::now()) {}
    double cpu() const { return cpu_seconds() - m_cpu; }
    double wall() const { return std::chrono::duration<double>(Clock::now() - m_wall).count(); }

private:
    double m_cpu;
    Clock::time_point m_wall;
};

// The heap used by one phase: its high-water mark above the start, and what
// is still live at the end.
class HeapPhase {
public:
    HeapPhase() : m_base(g_live) { g_peak = g_live; }
    long long peak() const { return g_peak - m_base; }
    long long kept() const { return g_live - m_base; }

private:
    long long m_base;
};

// ---------------------------------------------------------- memory streams

// Output into a chain of blocks: no copies as it grows.
class BlockOut : public std::streambuf {
public:
    static constexpr std::size_t kBlock = 1 << 20;

    std::size_t size() const
    {
        return m_blocks.empty() ? 0 : (m_blocks.size() - 1) * kBlock + static_cast<std::size_t>(pptr() - pbase());
    }

    std::string join() const
    {
        std::string s;
        s.reserve(size());
        for (std::size_t i = 0; i < m_blocks.size(); ++i)
            s.append(m_blocks[i].get(), i + 1 < m_blocks.size() ? kBlock : static_cast<std::size_t>(pptr() - pbase()));
        return s;
    }

protected:
    int_type overflow(int_type c) override
    {
        if (traits_type::eq_int_type(c, traits_type::eof()))
            return traits_type::not_eof(c);
        m_blocks.emplace_back(new char[kBlock]);
        setp(m_blocks.back().get(), m_blocks.back().get() + kBlock);
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
        return c;
    }

private:
    std::vector<std::unique_ptr<char[]>> m_blocks;
};

// Input from bytes in memory, without a copy.
class MemoryIn : public std::streambuf {
public:
    MemoryIn(char const* data, std::size_t n)
    {
        char* p = const_cast<char*>(data);
        setg(p, p, p + n);
    }
};

// ------------------------------------------------------------ the libraries

struct Phase {
    double seconds = 1e300;  // CPU, best of the repetitions
    double wall = 1e300;     // elapsed, best of the repetitions
    long long peak = 0;      // heap, bytes
    long long kept = 0;
};

struct LibraryResult {
    std::string name;
    std::size_t file_bytes = 0;
    Phase write;
    Phase read;
    bool ran = false;
};

[[noreturn]] void fail(std::string const& what)
{
    std::fprintf(stderr, "file_bench: %s\n", what.c_str());
    std::exit(1);
}

// Writes and reads `repeat` times through `write` and `read`; `check` sees
// the text and the first document read.
// Where the text of each library's first write is saved, when set.
std::string g_dump_prefix;

template <class Doc, class Write, class Read, class Check, class Drop>
LibraryResult measure(char const* name, int items, int repeat, Write write, Read read, Check check, Drop drop)
{
    LibraryResult r;
    r.name = name;
    r.ran = true;
    std::string text;
    for (int i = 0; i < repeat; ++i) {
        {
            BlockOut out;
            std::ostream os(&out);
            HeapPhase heap;
            Stopwatch watch;
            write(os);
            r.write.seconds = std::min(r.write.seconds, watch.cpu());
            r.write.wall = std::min(r.write.wall, watch.wall());
            if (!os)
                fail(std::string(name) + ": the stream failed while writing");
            if (i == 0) {
                r.write.peak = heap.peak();
                r.write.kept = heap.kept();
                text = out.join();
                r.file_bytes = text.size();
                if (!g_dump_prefix.empty()) {
                    std::ofstream dump(g_dump_prefix + "." + std::to_string(items) + "." + name, std::ios::binary);
                    dump.write(text.data(), static_cast<std::streamsize>(text.size()));
                }
            }
        }
        HeapPhase heap;
        Stopwatch watch;
        Doc doc = read(text);
        r.read.seconds = std::min(r.read.seconds, watch.cpu());
        r.read.wall = std::min(r.read.wall, watch.wall());
        if (i == 0) {
            r.read.peak = heap.peak();
            r.read.kept = heap.kept();
            check(text, doc);
        }
        drop(doc);
    }
    return r;
}

LibraryResult run_sto(annDocument const* document, int items, int repeat)
{
    auto write = [&](std::ostream& os) {
        stoFileWriter writer;
        if (!writer.write(os, document, sto_type_annDocument()))
            fail("sto: the writer failed");
    };
    auto read = [](std::string const& text) {
        if (text.size() > static_cast<std::size_t>(INT_MAX))
            fail("sto: the file is too large for a memory map");
        stoReadMemoryMap map(text.data(), static_cast<int>(text.size()));
        std::ostringstream diagnostics;
        annDocument* copy = new annDocument;
        // The values read live no longer than the reader, so they can come
        // from the value pool (declared first, it goes last).
        stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
        stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
        if (reader.error_count())
            fail("sto: the reader reported errors:\n" + diagnostics.str());
        stoTypeSynthesiser synthesiser;
        synthesiser.synthesise(reader.look_up_value("root"), copy);
        return copy;
    };
    auto check = [&](std::string const&, annDocument* copy) {
        std::string why;
        if (!sample_equal(*document, *copy, &why))
            fail("sto: the document read differs from the original: " + why);
    };
    auto drop = [](annDocument* copy) { delete copy; };
    return measure<annDocument*>("sto", items, repeat, write, read, check, drop);
}

// A mirror library: its write and read functions, checked by writing the
// document read once more.
LibraryResult run_mirror(char const* name, mirror::Document const& doc, int items, int repeat,
                         void (*write_fn)(std::ostream&, mirror::Document const&),
                         std::unique_ptr<mirror::Document> (*read_fn)(std::istream&))
{
    using Doc = std::unique_ptr<mirror::Document>;
    auto write = [&](std::ostream& os) { write_fn(os, doc); };
    auto read = [&](std::string const& text) {
        MemoryIn in(text.data(), text.size());
        std::istream is(&in);
        return read_fn(is);
    };
    auto check = [&](std::string const& text, Doc& copy) {
        BlockOut out;
        std::ostream os(&out);
        write_fn(os, *copy);
        if (out.join() != text)
            fail(std::string(name) + ": the document read writes different text from the original");
    };
    auto drop = [](Doc& copy) { copy.reset(); };
    return measure<Doc>(name, items, repeat, write, read, check, drop);
}

// ------------------------------------------------------------------- report

struct SizeResult {
    int items = 0;
    long objects = 0;
    std::vector<LibraryResult> libraries;

    LibraryResult const* find(char const* name) const
    {
        for (LibraryResult const& r : libraries)
            if (r.name == name && r.ran)
                return &r;
        return nullptr;
    }
};

double mb(double bytes) { return bytes / 1e6; }

void print_size(SizeResult const& s, int repeat)
{
    std::printf("\n%d items, %ld objects (best of %d)\n", s.items, s.objects, repeat);
    std::printf("  %-7s %-5s %8s %8s %12s %8s %9s %9s %9s %9s\n", "library", "phase", "cpu s", "wall s", "objects/s",
                "MB/s", "file MB", "peak MB", "peak/file", "kept MB");
    for (LibraryResult const& r : s.libraries) {
        if (!r.ran)
            continue;
        for (int p = 0; p < 2; ++p) {
            Phase const& ph = p == 0 ? r.write : r.read;
            std::printf("  %-7s %-5s %8.3f %8.3f %12.0f %8.1f %9.2f %9.2f %9.2f %9.2f\n", r.name.c_str(),
                        p == 0 ? "write" : "read", ph.seconds, ph.wall, s.objects / ph.seconds, mb(r.file_bytes) / ph.seconds,
                        mb(r.file_bytes), mb(ph.peak), double(ph.peak) / double(r.file_bytes), mb(ph.kept));
        }
    }
    LibraryResult const* sto = s.find("sto");
    if (!sto)
        return;
    for (LibraryResult const& r : s.libraries)
        if (r.ran && r.name != "sto")
            std::printf("  sto vs %-6s objects/s: write x%.2f, read x%.2f\n", r.name.c_str(),
                        r.write.seconds / sto->write.seconds, r.read.seconds / sto->read.seconds);
}

void print_targets(std::vector<SizeResult> const& sizes)
{
    std::printf("\ntargets (reported, not enforced)\n");
    auto verdict = [](bool met) { return met ? "met" : "NOT met"; };
    for (SizeResult const& s : sizes) {
        LibraryResult const* sto = s.find("sto");
        if (!sto)
            continue;
        if (LibraryResult const* b = s.find("boost")) {
            double w = b->write.seconds / sto->write.seconds;
            double r = b->read.seconds / sto->read.seconds;
            std::printf("  %8d items: sto >= 2x boost text (aim 5x): write x%.2f %s, read x%.2f %s\n", s.items, w,
                        verdict(w >= 2), r, verdict(r >= 2));
        }
        if (LibraryResult const* c = s.find("cereal")) {
            double w = c->write.seconds / sto->write.seconds;
            double r = c->read.seconds / sto->read.seconds;
            std::printf("  %8d items: sto well ahead of cereal JSON: write x%.2f %s, read x%.2f %s\n", s.items, w,
                        verdict(w > 1), r, verdict(r > 1));
        }
        double wp = double(sto->write.peak) / double(sto->file_bytes);
        double rp = double(sto->read.peak) / double(sto->file_bytes);
        std::printf("  %8d items: sto peak heap <= 3x file: write x%.2f %s, read x%.2f %s\n", s.items, wp,
                    verdict(wp <= 3), rp, verdict(rp <= 3));
    }
    for (std::size_t i = 1; i < sizes.size(); ++i) {
        LibraryResult const* a = sizes[i - 1].find("sto");
        LibraryResult const* b = sizes[i].find("sto");
        if (!a || !b)
            continue;
        double w = (b->write.seconds / sizes[i].objects) / (a->write.seconds / sizes[i - 1].objects);
        double r = (b->read.seconds / sizes[i].objects) / (a->read.seconds / sizes[i - 1].objects);
        std::printf("  sto time per object, %d vs %d items (<= 1.3): write x%.2f %s, read x%.2f %s\n", sizes[i].items,
                    sizes[i - 1].items, w, verdict(w <= 1.3), r, verdict(r <= 1.3));
    }
}

std::string load_average()
{
    std::ifstream in("/proc/loadavg");
    std::string a, b, c;
    in >> a >> b >> c;
    return a + " " + b + " " + c;
}

std::vector<std::string> split(std::string const& list)
{
    std::vector<std::string> parts;
    std::stringstream ss(list);
    std::string part;
    while (std::getline(ss, part, ','))
        if (!part.empty())
            parts.push_back(part);
    return parts;
}

int usage(char const* program)
{
    std::fprintf(stderr, "usage: %s [--items N[,N...]] [--repeat R] [--seed S] [--libraries sto,boost,cereal] "
                 "[--dump PREFIX]\n",
                 program);
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<int> sizes;
    int repeat = 3;
    unsigned seed = 7;
    std::vector<std::string> libraries = {"sto", "boost", "cereal"};
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (i + 1 >= argc)
            return usage(argv[0]);
        std::string value = argv[++i];
        if (arg == "--items") {
            for (std::string const& n : split(value)) {
                int items = std::atoi(n.c_str());
                if (items < 1)
                    return usage(argv[0]);
                sizes.push_back(items);
            }
        } else if (arg == "--repeat") {
            repeat = std::atoi(value.c_str());
            if (repeat < 1)
                return usage(argv[0]);
        } else if (arg == "--seed") {
            seed = static_cast<unsigned>(std::strtoul(value.c_str(), nullptr, 10));
        } else if (arg == "--dump") {
            g_dump_prefix = value;
        } else if (arg == "--libraries") {
            libraries = split(value);
            for (std::string const& l : libraries)
                if (l != "sto" && l != "boost" && l != "cereal")
                    return usage(argv[0]);
        } else {
            return usage(argv[0]);
        }
    }
    if (sizes.empty())
        sizes = {10000, 100000, 1000000};
    auto wanted = [&](char const* name) { return std::find(libraries.begin(), libraries.end(), name) != libraries.end(); };

    sample_force_load();
    sto_finish_values();
    std::printf("file_bench: load average at start %s%s\n", load_average().c_str(),
                FILE_BENCH_COUNTS_HEAP ? "" : " (heap not counted in a sanitizer build)");

    std::vector<SizeResult> results;
    for (int items : sizes) {
        SizeResult s;
        s.items = items;
        annDocument* document = sample_make_document(items, seed);
        for (auto const& [name, count] : sample_census(*document))
            s.objects += count;
        if (wanted("sto"))
            s.libraries.push_back(run_sto(document, items, repeat));
        if (wanted("boost") || wanted("cereal")) {
            mirror::Builder builder;
            std::unique_ptr<mirror::Document> doc = builder.build(*document);
            if (builder.objects() != s.objects)
                fail("the mirror has " + std::to_string(builder.objects()) + " objects, the document " +
                     std::to_string(s.objects));
            if (wanted("boost"))
                s.libraries.push_back(run_mirror("boost", *doc, items, repeat, mirror::boost_write, mirror::boost_read));
            if (wanted("cereal"))
                s.libraries.push_back(run_mirror("cereal", *doc, items, repeat, mirror::cereal_write, mirror::cereal_read));
        }
        delete document;
        print_size(s, repeat);
        std::fflush(stdout);
        results.push_back(std::move(s));
    }
    print_targets(results);
    std::printf("file_bench: load average at end %s\n", load_average().c_str());
    return 0;
}
