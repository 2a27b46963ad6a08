// Every input under tests/fuzz/regressions/ once crashed, hung, leaked or
// tripped a sanitizer in the reader. Each goes through the reader fuzz
// target's read path again: it must finish, and the sanitizer build checks
// that it does so cleanly.
#include "fuzz/read_any.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

TEST(FuzzReplay, EveryRegressionInputReadsToTheEnd)
{
    std::vector<std::filesystem::path> inputs;
    for (auto const& entry : std::filesystem::directory_iterator(STO_FUZZ_REGRESSIONS_DIR))
        if (entry.is_regular_file())
            inputs.push_back(entry.path());
    std::sort(inputs.begin(), inputs.end());
    ASSERT_FALSE(inputs.empty()) << "no inputs in " << STO_FUZZ_REGRESSIONS_DIR;
    for (auto const& path : inputs) {
        SCOPED_TRACE(path.filename().string());
        std::ifstream in(path, std::ios::binary);
        ASSERT_TRUE(in) << path;
        // A buffer of exactly the input's size, as the fuzzer gives it, so
        // that a read past the end is caught.
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::unique_ptr<char[]> exact(new char[bytes.size() ? bytes.size() : 1]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        // Twice, as the fuzzer runs an input again to look for leaks: what
        // the first reading leaves behind in the process (a schema linked
        // into the system, say) must not trouble the second.
        sto_fuzz::read_any(exact.get(), bytes.size());
        sto_fuzz::read_any(exact.get(), bytes.size());
    }
}
