// Throughput of the reader's literal level: doubles printed as the writer
// prints them (17 significant digits) read by the lexer and, for scale, by
// strtod; integers; and Base64 byte arrays.
#include "io/lexer.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Reads literals from one buffer: each is followed by a line feed.
class BenchLexer : public stoReadLexer {
public:
    explicit BenchLexer(const std::string& text) : stoReadLexer(&m_diagnostics, nullptr)
    {
        set_input(text.data(), static_cast<int>(text.size()));
    }

    // Reads every literal of the buffer; answers the sum of their values.
    double read_all_numbers()
    {
        set_input(input_start(), input_length());
        double sum = 0.0;
        while (!at_end()) {
            long long integer = 0;
            double real = 0.0;
            sum += read_number(integer, real) ? static_cast<double>(integer) : real;
            absorb_new_line();
        }
        return sum;
    }

    int read_all_byte_arrays()
    {
        set_input(input_start(), input_length());
        int bytes = 0;
        while (!at_end())
            bytes += read_byte_array().size();
        return bytes;
    }

private:
    std::ostringstream m_diagnostics;
};

// Literals of finite doubles of random bits whose scale the reader's power
// tables cover, or of random 64-bit integers.
std::string make_literals(int count, bool integers)
{
    std::mt19937_64 random(42);
    std::string text;
    char literal[64];
    for (int i = 0; i < count;) {
        std::uint64_t bits = random();
        if (integers) {
            std::snprintf(literal, sizeof literal, "%lld", static_cast<long long>(bits));
        } else {
            double x = 0;
            std::memcpy(&x, &bits, sizeof x);
            if (!std::isfinite(x) || std::fabs(x) < 1e-290)
                continue;
            std::snprintf(literal, sizeof literal, "%.17g", x);
        }
        text += literal;
        text += '\n';
        ++i;
    }
    return text;
}

void BM_ReadPrintedDoubles(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    std::string text = make_literals(count, false);
    BenchLexer lexer(text);
    for (auto _ : state)
        benchmark::DoNotOptimize(lexer.read_all_numbers());
    state.SetItemsProcessed(state.iterations() * count);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_ReadPrintedDoubles)->Arg(10000);

void BM_StrtodPrintedDoubles(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    std::string text = make_literals(count, false);
    for (auto _ : state) {
        const char* p = text.c_str();
        double sum = 0.0;
        for (int i = 0; i < count; ++i) {
            char* end = nullptr;
            sum += std::strtod(p, &end);
            p = end + 1;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_StrtodPrintedDoubles)->Arg(10000);

void BM_ReadIntegers(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    std::string text = make_literals(count, true);
    BenchLexer lexer(text);
    for (auto _ : state)
        benchmark::DoNotOptimize(lexer.read_all_numbers());
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_ReadIntegers)->Arg(10000);

void BM_ReadByteArrays(benchmark::State& state)
{
    // Arrays of the given size in the writer's layout: lines of 60 characters
    // and an empty line after each array.
    const int size = static_cast<int>(state.range(0));
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::mt19937 random(7);
    std::string text;
    for (int array = 0; array < 16; ++array) {
        std::string data;
        for (int i = 0; i < (size + 2) / 3 * 4; ++i)
            data += alphabet[random() % 64];
        for (std::size_t i = 0; i < data.size(); i += 60)
            text += data.substr(i, 60) + "\n";
        text += "\n";
    }
    BenchLexer lexer(text);
    for (auto _ : state)
        benchmark::DoNotOptimize(lexer.read_all_byte_arrays());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_ReadByteArrays)->Arg(45)->Arg(4096)->Arg(1 << 20);

}  // namespace

BENCHMARK_MAIN();
