// libFuzzer target: arbitrary bytes as a store file, through the whole read path (scan, read, on-demand
// records, pointer fix-up, synthesis of the root when the file reads cleanly) and back to nothing.
#include "read_any.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    // STO_FUZZ_VERBOSE=1 shows the reader's reports, for looking at one input.
    static bool const verbose = std::getenv("STO_FUZZ_VERBOSE") != nullptr;
    int clean = sto_fuzz::read_any(reinterpret_cast<char const*>(data), size, verbose ? &std::cerr : nullptr);
    if (verbose)
        std::cerr << (clean ? "read cleanly, root synthesised\n" : "not read cleanly\n");
    return 0;
}
