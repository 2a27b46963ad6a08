// The demo: builds a document of the sample application, writes it to
// sample.sto, reads it back into a fresh document, checks that the two are
// equal, and reports objects, bytes, times and throughput, and the opening
// lines of the file.
//
//   sto_demo                  # 10,000 items
//   sto_demo --items 200000
#include "sample.h"

#include <sto.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

}  // namespace

int main(int argc, char** argv)
{
    int items = 10000;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--items") && i + 1 < argc) {
            items = std::atoi(argv[++i]);
        } else {
            std::fprintf(stderr, "usage: %s [--items N]\n", argv[0]);
            return 2;
        }
    }
    sample_force_load();
    annDocument* document = sample_make_document(items, 2026u);
    long objects = 0;
    for (auto const& [name, count] : sample_census(*document))
        objects += count;

    auto t0 = Clock::now();
    {
        std::ofstream out("sample.sto", std::ios::binary);
        stoFileWriter writer;
        if (!writer.write(out, document, sto_type_annDocument()) || !out) {
            std::fprintf(stderr, "writing sample.sto failed\n");
            return 1;
        }
    }
    double write_s = seconds_since(t0);

    annDocument* copy = new annDocument;
    auto t1 = Clock::now();
    long bytes = 0;
    {
        stoReadFileNameMap map("sample.sto");
        bytes = map.length();
        std::ostringstream diagnostics;
        // The values read go with the reader, so they may come from the value
        // pool: declared before the reader, the pool outlives it.
        stoMemoryPoolEnabler pool(stoValue::sto_memory_pool(), stoValue::sto_memory_pool_size());
        stoFileReader reader(&map, &diagnostics, nullptr, nullptr);
        if (reader.error_count()) {
            std::fprintf(stderr, "reading sample.sto reported %d errors:\n%s", reader.error_count(),
                         diagnostics.str().c_str());
            return 1;
        }
        stoTypeSynthesiser synthesiser;
        synthesiser.synthesise(reader.look_up_value("root"), copy);
    }
    double read_s = seconds_since(t1);

    std::string why;
    bool same = sample_equal(*document, *copy, &why);
    std::printf("sto demo: %d items, %ld objects, %ld bytes in sample.sto\n", items, objects, bytes);
    std::printf("  write: %.3f s, %.0f objects/s, %.1f MB/s\n", write_s, objects / write_s, bytes / write_s / 1e6);
    std::printf("  read:  %.3f s, %.0f objects/s, %.1f MB/s (read and synthesis)\n", read_s, objects / read_s,
                bytes / read_s / 1e6);
    std::printf("  round trip: %s\n", same ? "the document read back equals the original" : why.c_str());
    std::printf("  opening lines of sample.sto:\n");
    std::ifstream in("sample.sto");
    std::string line;
    for (int i = 0; i < 12 && std::getline(in, line); ++i)
        std::printf("    %s\n", line.substr(0, 100).c_str());
    delete copy;
    delete document;
    return same ? 0 : 1;
}
