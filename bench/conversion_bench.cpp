// Analysis (live objects to values) and synthesis (values to live objects)
// of generated sample documents, with the value pool installed as writes and
// reads install it. Prints, per document size: live objects, values, objects
// per second each way, and the peak memory each phase adds per object; then
// the time per object of each size relative to the previous one, which stays
// near 1 when no hidden quadratic work is done.
//
//   sto_bench_conversion_bench          # 10k, 100k and 1M items
//   sto_bench_conversion_bench --items 20000 # one size (repeatable)
//   sto_bench_conversion_bench --repeat 3    # three rounds over the sizes
//   sto_bench_conversion_bench --cpu         # CPU time instead of wall time
//   sto_bench_conversion_bench --user        # user CPU time only
//   sto_bench_conversion_bench --each        # every run's times on stderr
//   sto_bench_conversion_bench --small-pages # the system's default pages
//
// The CPU time of the process (page faults included) is much less disturbed
// than the wall time when other programs compete for the cores. The user
// time leaves out the kernel's work for fresh pages too: on a virtual
// machine whose host reclaims idle guest memory, a first touch can cost
// microseconds per page, which says nothing about sto's own work per object.
//
// A large document is read and written at scattered places over gigabytes.
// With 4 KiB pages nearly every such access also misses the address
// translation caches, and at a few gigabytes the page tables no longer fit
// the data caches either. sto_bench_memory_probe measures it without sto:
// on the machine where this was measured, scattered reads over 2 GB cost
// about twice as much as over 200 MB with small pages, and 1.05 to 1.15
// times with huge pages. That step belongs to the machine, not to sto,
// and it hid sto's own growth from 100k to 1M items, so the bench runs as a
// program handling such documents should: it asks glibc to back its heap
// with transparent huge pages, re-running itself once with that setting
// (glibc reads it at start only), and reports how much memory they backed.
#include "sample.h"

#include <sto.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/resource.h>
#include <unistd.h>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

bool g_cpu_time = false;
bool g_user_time = false;
bool g_each_run = false;  // --each: one line per run on stderr

char const kHugePagesTunable[] = "glibc.malloc.hugetlb=1";
char const kRerunMark[] = "STO_BENCH_RERUN";

// Runs this program again with glibc's heap asking for transparent huge
// pages, unless this is the run again or the caller set that tunable
// already. Returns only when no new run started.
void rerun_with_huge_pages(char** argv)
{
    if (std::getenv(kRerunMark))
        return;
    std::string tunables = kHugePagesTunable;
    if (char const* set = std::getenv("GLIBC_TUNABLES")) {
        if (std::strstr(set, "glibc.malloc.hugetlb"))
            return;
        tunables = std::string(set) + ":" + tunables;
    }
    setenv("GLIBC_TUNABLES", tunables.c_str(), 1);
    setenv(kRerunMark, "1", 1);
    execv("/proc/self/exe", argv);
    // Nothing was run: go on as we are; the report tells the pages used.
    unsetenv(kRerunMark);
}

// The share of the resident memory backed by huge pages, in percent, or -1
// when the system does not say.
double huge_page_share()
{
    std::ifstream rollup("/proc/self/smaps_rollup");
    std::string line;
    long rss = -1, huge = -1;
    while (std::getline(rollup, line)) {
        if (line.compare(0, 4, "Rss:") == 0)
            rss = std::atol(line.c_str() + 4);
        else if (line.compare(0, 14, "AnonHugePages:") == 0)
            huge = std::atol(line.c_str() + 14);
    }
    return rss > 0 && huge >= 0 ? 100.0 * static_cast<double>(huge) / static_cast<double>(rss) : -1;
}

double seconds(timeval const& t) { return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec); }

double now()
{
    if (g_user_time) {
        rusage u{};
        getrusage(RUSAGE_SELF, &u);
        return seconds(u.ru_utime);
    }
    if (g_cpu_time) {
        timespec t{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
    }
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

long read_status_kb(char const* field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    std::size_t n = std::strlen(field);
    while (std::getline(status, line))
        if (line.compare(0, n, field) == 0)
            return std::atol(line.c_str() + n);
    return -1;
}

// Resets the peak resident size to the current one (Linux), so that each
// phase's peak can be read on its own.
void reset_peak()
{
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
}

// The values that the graph owns (the analyser's stubs and their ids are
// not counted). A walk over the owning links, much cheaper than collecting
// the participants of a graph of tens of millions of values in a set.
long owned_values(stoValue const* root)
{
    long n = 0;
    std::vector<stoValue const*> stack{root};
    coSet<stoValue const*> shared;  // targets of counted pointers, counted once
    while (!stack.empty()) {
        stoValue const* v = stack.back();
        stack.pop_back();
        ++n;
        switch (v->kind()) {
        case stoValue::kObjectKind:
        case stoValue::kArrayKind:
        case stoValue::kMappedKind:
            for (int i = v->number_of_children() - 1; i >= 0; --i)
                if (stoValue const* c = v->child(i))
                    stack.push_back(c);
            break;
        case stoValue::kStubKind:
            if (stoValue const* id = v->child(1))
                stack.push_back(id);
            break;
        case stoValue::kPrgKind:
        case stoValue::kPrfKind: {
            // Pointers at stubs do not own them.
            stoValue const* target = v->child(0);
            if (target && !target->is_stub() && (v->kind() == stoValue::kPrgKind || shared.add(target) == nullptr))
                stack.push_back(target);
            break;
        }
        default:
            break;
        }
    }
    return n;
}

struct Result {
    int items;
    long objects;
    long values;
    double analysis_s;
    double synthesis_s;
    double free_s;  // deleting the value graph
    long analysis_peak_kb;
    // Of the first analysis: user and system CPU seconds, minor page faults.
    double analysis_user_s;
    double analysis_sys_s;
    long analysis_faults;
    // The share of the resident memory in huge pages at its end, in percent.
    double huge_page_share;
    // Of the first synthesis: user and system CPU seconds, minor page faults.
    double synthesis_user_s;
    double synthesis_sys_s;
    long synthesis_faults;
    long synthesis_peak_kb;
    // Every run's times, in the order of the rounds.
    std::vector<double> analysis_runs;
    std::vector<double> synthesis_runs;
};

struct Times {
    double analysis_s = 0;
    double synthesis_s = 0;
    double free_s = 0;
};

// One analysis and one synthesis of the document, checked against it. The
// first run of a document also records its peaks and where its time went,
// when the heap is as fresh as a writer would find it.
Times run_once(annDocument const* document, Result& r, bool first)
{
    Times times;
    annDocument* copy = new annDocument;
    {
        stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
        long base = read_status_kb("VmRSS:");
        reset_peak();
        rusage u0{};
        getrusage(RUSAGE_SELF, &u0);
        double t0 = now();
        stoAnalyser analyser;
        stoValue* root = analyser.raw_to_value(sto_type_annDocument(), document);
        analyser.stub_dangling_pointers();
        double analysis_s = now() - t0;
        rusage u1{};
        getrusage(RUSAGE_SELF, &u1);
        double analysis_user_s = seconds(u1.ru_utime) - seconds(u0.ru_utime);
        double analysis_sys_s = seconds(u1.ru_stime) - seconds(u0.ru_stime);
        if (first) {
            r.analysis_user_s = analysis_user_s;
            r.analysis_sys_s = analysis_sys_s;
            r.analysis_faults = u1.ru_minflt - u0.ru_minflt;
        }
        times.analysis_s = analysis_s;
        if (first) {
            r.analysis_peak_kb = read_status_kb("VmHWM:") - base;
            r.huge_page_share = huge_page_share();
        }

        if (first)
            r.values = owned_values(root);

        base = read_status_kb("VmRSS:");
        reset_peak();
        getrusage(RUSAGE_SELF, &u0);
        double t2 = now();
        {
            stoTypeSynthesiser synthesiser;
            synthesiser.synthesise(root, copy);
        }
        double synthesis_s = now() - t2;
        getrusage(RUSAGE_SELF, &u1);
        double synthesis_user_s = seconds(u1.ru_utime) - seconds(u0.ru_utime);
        double synthesis_sys_s = seconds(u1.ru_stime) - seconds(u0.ru_stime);
        if (first) {
            r.synthesis_user_s = synthesis_user_s;
            r.synthesis_sys_s = synthesis_sys_s;
            r.synthesis_faults = u1.ru_minflt - u0.ru_minflt;
        }
        times.synthesis_s = synthesis_s;
        if (first)
            r.synthesis_peak_kb = read_status_kb("VmHWM:") - base;

        double t4 = now();
        delete root;
        analyser.destroy_stubs();
        double free_s = now() - t4;
        if (g_each_run)
            std::fprintf(stderr,
                         "%d items (ns/obj): analysis %.0f (user %.0f, sys %.0f), synthesis %.0f (user %.0f, "
                         "sys %.0f), deleting %.0f\n",
                         r.items, 1e9 * analysis_s / r.objects, 1e9 * analysis_user_s / r.objects,
                         1e9 * analysis_sys_s / r.objects, 1e9 * synthesis_s / r.objects,
                         1e9 * synthesis_user_s / r.objects, 1e9 * synthesis_sys_s / r.objects,
                         1e9 * free_s / r.objects);
        times.free_s = free_s;
    }
    std::string why;
    if (!sample_equal(*document, *copy, &why)) {
        std::fprintf(stderr, "round trip differs at %d items: %s\n", r.items, why.c_str());
        std::exit(1);
    }
    delete copy;
    return times;
}

// One round of a document: as many runs as make up about `items` items,
// so that every size's round lasts about as long and meets the same noise
// of a shared machine. With one run per round, the best round of a small
// document came from a fraction of a second that happened to be quiet, and
// its ratio to a large document's best round, which spans seconds, grew
// with the noise instead of the work. Times are per run, averaged over the
// round; the best round's are kept.
void run_round(annDocument const* document, Result& r, bool first, int items)
{
    int runs = std::max(1, (items + r.items / 2) / r.items);
    Times sum;
    for (long i = 0; i < runs; ++i) {
        Times t = run_once(document, r, first && i == 0);
        sum.analysis_s += t.analysis_s;
        sum.synthesis_s += t.synthesis_s;
        sum.free_s += t.free_s;
    }
    double analysis_s = sum.analysis_s / runs;
    double synthesis_s = sum.synthesis_s / runs;
    double free_s = sum.free_s / runs;
    r.analysis_runs.push_back(analysis_s);
    r.synthesis_runs.push_back(synthesis_s);
    if (first || analysis_s < r.analysis_s)
        r.analysis_s = analysis_s;
    if (first || synthesis_s < r.synthesis_s)
        r.synthesis_s = synthesis_s;
    if (first || free_s < r.free_s)
        r.free_s = free_s;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    std::size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<int> sizes;
    unsigned seed = 7;
    int repeat = 1;
    bool small_pages = false;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--items") && i + 1 < argc && std::atoi(argv[i + 1]) > 0)
            sizes.push_back(std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--seed") && i + 1 < argc)
            seed = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 10));
        else if (!std::strcmp(argv[i], "--repeat") && i + 1 < argc)
            repeat = std::max(1, std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--cpu"))
            g_cpu_time = true;
        else if (!std::strcmp(argv[i], "--user"))
            g_user_time = true;
        else if (!std::strcmp(argv[i], "--each"))
            g_each_run = true;
        else if (!std::strcmp(argv[i], "--small-pages"))
            small_pages = true;
        else {
            std::fprintf(stderr,
                         "usage: %s [--items N]... [--seed S] [--repeat R] [--cpu] [--user] [--each] [--small-pages]\n",
                         argv[0]);
            return 2;
        }
    }
    if (!small_pages)
        rerun_with_huge_pages(argv);
    if (sizes.empty())
        sizes = {10000, 100000, 1000000};
    sample_force_load();
    sto_finish_values();

    std::printf("%9s %10s %10s %14s %14s %12s %12s\n", "items", "objects", "values", "analysis obj/s",
                "synth obj/s", "anal B/obj", "synth B/obj");
    // The sizes take turns, round after round: a machine whose speed drifts
    // over minutes (a busy neighbour on the host, memory reclaimed by the
    // host) then slows every size alike, and the rounds' ratios show how far
    // the drift went. Each document's first round comes right after it is
    // made, as in a program that writes what it just built, so that its peak
    // memory is not hidden by heap memory that a later document left free.
    // Every round converts about as many items as the largest document has.
    std::vector<Result> results(sizes.size());
    std::vector<annDocument*> documents;
    int round_items = *std::max_element(sizes.begin(), sizes.end());
    for (std::size_t k = 0; k < sizes.size(); ++k) {
        results[k].items = sizes[k];
        documents.push_back(sample_make_document(sizes[k], seed));
        for (auto const& [name, count] : sample_census(*documents.back()))
            results[k].objects += count;
        run_round(documents[k], results[k], true, round_items);
    }
    for (int i = 1; i < repeat; ++i)
        for (std::size_t k = 0; k < sizes.size(); ++k)
            run_round(documents[k], results[k], false, round_items);
    for (annDocument* document : documents)
        delete document;
    for (Result const& r : results) {
        std::printf("%9d %10ld %10ld %14.0f %14.0f %12.1f %12.1f\n", r.items, r.objects, r.values,
                    r.objects / r.analysis_s, r.objects / r.synthesis_s, 1024.0 * r.analysis_peak_kb / r.objects,
                    1024.0 * r.synthesis_peak_kb / r.objects);
    }
    // Where the first analysis of each size spent its time: instructions
    // per object do not grow with the graph, so growth here is memory.
    for (Result const& r : results)
        std::printf("first analysis, %d items: user %.0f ns/obj, system %.0f ns/obj, %.3f page faults/obj\n",
                    r.items, 1e9 * r.analysis_user_s / r.objects, 1e9 * r.analysis_sys_s / r.objects,
                    static_cast<double>(r.analysis_faults) / r.objects);
    for (Result const& r : results)
        std::printf("first synthesis, %d items: user %.0f ns/obj, system %.0f ns/obj, %.3f page faults/obj\n",
                    r.items, 1e9 * r.synthesis_user_s / r.objects, 1e9 * r.synthesis_sys_s / r.objects,
                    static_cast<double>(r.synthesis_faults) / r.objects);
    for (Result const& r : results)
        std::printf("deleting the values, %d items: %.0f ns/obj\n", r.items, 1e9 * r.free_s / r.objects);
    char const* tunables = std::getenv("GLIBC_TUNABLES");
    std::printf("pages: %s; in huge pages at the end of the first analysis:",
                tunables && std::strstr(tunables, kHugePagesTunable) ? "huge pages asked of glibc's heap"
                                                                     : "the system's default");
    for (Result const& r : results)
        if (r.huge_page_share < 0)
            std::printf(" %d items unknown", r.items);
        else
            std::printf(" %d items %.0f%%", r.items, r.huge_page_share);
    std::printf("\n");
    for (std::size_t i = 1; i < results.size(); ++i) {
        Result const& a = results[i - 1];
        Result const& b = results[i];
        std::vector<double> analysis, synthesis;
        for (int j = 0; j < repeat; ++j) {
            analysis.push_back((b.analysis_runs[j] / b.objects) / (a.analysis_runs[j] / a.objects));
            synthesis.push_back((b.synthesis_runs[j] / b.objects) / (a.synthesis_runs[j] / a.objects));
        }
        std::printf("time per object, %d vs %d items: analysis x%.2f, synthesis x%.2f (best of each); "
                    "median of the rounds: analysis x%.2f, synthesis x%.2f\n",
                    b.items, a.items, (b.analysis_s / b.objects) / (a.analysis_s / a.objects),
                    (b.synthesis_s / b.objects) / (a.synthesis_s / a.objects), median(analysis), median(synthesis));
    }
    return 0;
}
