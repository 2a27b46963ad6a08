// Analysis (live objects to values) and synthesis (values to live objects)
// of generated sample documents, with the value pool installed as writes and
// reads install it. Prints, per document size: live objects, values, objects
// per second each way, and the peak memory each phase adds per object; then
// the time per object of each size relative to the previous one, which stays
// near 1 when no hidden quadratic work is done.
//
//   sto_bench_conversion_bench          # 10k, 100k and 1M items
//   sto_bench_conversion_bench --items 20000 # one size (repeatable)
#include "sample.h"

#include <sto.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

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

struct Result {
    int items;
    long objects;
    long values;
    double analysis_s;
    double synthesis_s;
    long analysis_peak_kb;
    long synthesis_peak_kb;
};

Result run(int items, unsigned seed)
{
    Result r{};
    r.items = items;
    annDocument* document = sample_make_document(items, seed);
    for (auto const& [name, count] : sample_census(*document))
        r.objects += count;

    annDocument* copy = new annDocument;
    {
        stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
        long base = read_status_kb("VmRSS:");
        reset_peak();
        auto t0 = Clock::now();
        stoAnalyser analyser;
        stoValue* root = analyser.raw_to_value(sto_type_annDocument(), document);
        analyser.stub_dangling_pointers();
        auto t1 = Clock::now();
        r.analysis_s = std::chrono::duration<double>(t1 - t0).count();
        r.analysis_peak_kb = read_status_kb("VmHWM:") - base;

        stoValuePtrcoSet all;
        root->participants(all);
        r.values = all.size();
        all.clear();

        base = read_status_kb("VmRSS:");
        reset_peak();
        auto t2 = Clock::now();
        {
            stoTypeSynthesiser synthesiser;
            synthesiser.synthesise(root, copy);
        }
        auto t3 = Clock::now();
        r.synthesis_s = std::chrono::duration<double>(t3 - t2).count();
        r.synthesis_peak_kb = read_status_kb("VmHWM:") - base;

        delete root;
        analyser.destroy_stubs();
    }
    std::string why;
    if (!sample_equal(*document, *copy, &why)) {
        std::fprintf(stderr, "round trip differs at %d items: %s\n", items, why.c_str());
        std::exit(1);
    }
    delete copy;
    delete document;
    return r;
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<int> sizes;
    unsigned seed = 7;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--items") && i + 1 < argc)
            sizes.push_back(std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--seed") && i + 1 < argc)
            seed = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 10));
        else {
            std::fprintf(stderr, "usage: %s [--items N]... [--seed S]\n", argv[0]);
            return 2;
        }
    }
    if (sizes.empty())
        sizes = {10000, 100000, 1000000};
    sample_force_load();
    sto_finish_values();

    std::printf("%9s %10s %10s %14s %14s %12s %12s\n", "items", "objects", "values", "analysis obj/s",
                "synth obj/s", "anal B/obj", "synth B/obj");
    std::vector<Result> results;
    for (int items : sizes) {
        Result r = run(items, seed);
        results.push_back(r);
        std::printf("%9d %10ld %10ld %14.0f %14.0f %12.1f %12.1f\n", r.items, r.objects, r.values,
                    r.objects / r.analysis_s, r.objects / r.synthesis_s, 1024.0 * r.analysis_peak_kb / r.objects,
                    1024.0 * r.synthesis_peak_kb / r.objects);
        std::fflush(stdout);
    }
    for (std::size_t i = 1; i < results.size(); ++i) {
        Result const& a = results[i - 1];
        Result const& b = results[i];
        std::printf("time per object, %d vs %d items: analysis x%.2f, synthesis x%.2f\n", b.items, a.items,
                    (b.analysis_s / b.objects) / (a.analysis_s / a.objects),
                    (b.synthesis_s / b.objects) / (a.synthesis_s / a.objects));
    }
    return 0;
}
