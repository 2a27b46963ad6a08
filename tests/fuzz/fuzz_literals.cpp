// libFuzzer target for the literal decoders of the reader. The first byte picks a decoder, the rest is its
// input. Beyond "no crash", each mode checks what must hold for every input:
//   0  number literal: one read without a report is finite; an integer of up to 18 digits is exact; a double
//      of modest digits and scale well inside the power tables is within an ulp of strtod of the same text.
//   1  double bits: printed with %.17g, as the writer prints them, they read back to the same bits (minus
//      zero and values whose 17 digits reach below the power tables excepted, as the format has them).
//   2  string bytes: written as a literal and decoded again they are the same bytes (zero bytes, which the
//      decoder drops, excepted), the cursor ends after the closing quote; the raw input decoded as a literal
//      keeps the cursor within the input.
//   3  byte-array bytes: written as Base64 lines and decoded again they are the same bytes; the raw input
//      decoded as Base64 never yields more than three bytes for every four characters.
//   4  identifier: a key holds identifier bytes only and ends at the first other byte; equal keys hash alike.
#include <sto.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

[[noreturn]] void fail(char const* what, std::string const& input)
{
    std::fprintf(stderr, "fuzz_literals: %s\ninput: ", what);
    for (unsigned char c : input)
        std::fprintf(stderr, (c >= 0x20 && c < 0x7F) ? "%c" : "\\x%02X", c);
    std::fprintf(stderr, "\n");
    std::abort();
}

// The lexer's protected members, over a copy of exactly the text's size, so that a read past its end is
// caught.
class Lexer : public stoReadLexer {
public:
    explicit Lexer(std::string const& text)
        : stoReadLexer(nullptr, nullptr), m_bytes(text.begin(), text.end())
    {
        set_input(m_bytes.data(), static_cast<int>(m_bytes.size()));
    }
    std::string consumed() const { return std::string(input_start(), cursor()); }
    using stoReadLexer::cursor, stoReadLexer::e, stoReadLexer::input_end, stoReadLexer::read_identifier,
        stoReadLexer::read_number;

private:
    std::vector<char> m_bytes;
};

// Units in the last place between two finite doubles of the same sign.
std::uint64_t ulps_apart(double a, double b)
{
    std::int64_t ia, ib;
    std::memcpy(&ia, &a, sizeof a);
    std::memcpy(&ib, &b, sizeof b);
    return ia > ib ? static_cast<std::uint64_t>(ia - ib) : static_cast<std::uint64_t>(ib - ia);
}

void check_number(std::string const& text)
{
    Lexer lexer(text);
    long long integer = 0;
    double real = 0;
    int is_integer = lexer.read_number(integer, real);
    if (lexer.e())
        return;
    // The literal as the reader took it: digits before and after the point, and the exponent (clamped, it
    // only gates the checks).
    std::string const literal = lexer.consumed();
    auto const digit = [](char c) { return c >= '0' && c <= '9'; };
    std::size_t const e = std::min(literal.find_first_of("eE"), literal.size());
    std::size_t const point = std::min(literal.find('.'), e);
    long long const fraction = std::count_if(literal.begin() + point, literal.begin() + e, digit);
    long long const significant = std::count_if(literal.begin(), literal.begin() + e, digit);
    long long const exponent =
        e < literal.size() ? std::clamp(std::strtoll(&literal[e + 1], nullptr, 10), -1000000LL, 1000000LL) : 0;
    if (is_integer) {
        if (e < literal.size() || point < e)
            fail("a literal with a point or exponent read as an integer", text);
        if (significant <= 18 && integer != std::strtoll(literal.c_str(), nullptr, 10))
            fail("an integer literal read with the wrong value", text);
        return;
    }
    if (!std::isfinite(real))
        fail("a double read without a report is not finite", text);
    long long const scale = exponent - fraction;
    // A lone "." reads as 0, as the format's grammar for a leading point has it.
    if (significant == 0 || significant > 30 || scale < -280 || scale > 280)
        return;
    double const expected = std::strtod(literal.c_str(), nullptr);
    if (std::isinf(expected))
        fail("a double beyond the range read without a report", text);
    if (expected == 0.0 ? real != 0.0
                        : (std::signbit(expected) != std::signbit(real) || ulps_apart(expected, real) > 1))
        fail("a double read more than an ulp away from strtod", text);
}

void check_double_bits(std::string const& text)
{
    if (text.size() < sizeof(double))
        return;
    double x;
    std::memcpy(&x, text.data(), sizeof x);
    // Literals whose decimal scale is below the power tables read as 0: the 17 digits of anything under
    // about 1e-291 reach below 10^-308. Minus zero prints as "-0", an integer literal: the integer 0.
    if (!std::isfinite(x) || (x != 0.0 && std::fabs(x) < 1e-291) || (x == 0.0 && std::signbit(x)))
        return;
    char printed[40];
    std::snprintf(printed, sizeof printed, "%.17g", x);
    Lexer lexer(printed);
    long long integer = 0;
    double real = 0;
    double back = lexer.read_number(integer, real) ? static_cast<double>(integer) : real;
    if (lexer.e() || lexer.cursor() != lexer.input_end())
        fail("a printed double did not read as one number", printed);
    if (std::memcmp(&back, &x, sizeof x) != 0)
        fail("a printed double read back to other bits", printed);
}

void check_string(std::string const& text)
{
    utString original(utStringArray, text.data(), static_cast<int>(text.size()));
    std::ostringstream os;
    sto_write_ascii_utString(os, original);
    std::string const literal = os.str();
    char const* cursor = literal.data();
    utString back;
    if (!stoNullEncoder().encode_string(cursor, literal.data() + literal.size(), back))
        fail("a written string literal did not decode", text);
    if (cursor != literal.data() + literal.size())
        fail("decoding a string literal stopped elsewhere than its end", text);
    // Zero bytes are dropped on purpose: the store's strings are read as zero-terminated text everywhere
    // downstream.
    if (text.find('\0') == std::string::npos && back.view() != original.view())
        fail("a string literal decoded to other bytes", text);

    // Arbitrary text through the reader's own encoder.
    std::vector<char> bytes(text.begin(), text.end());
    char const* raw = bytes.data();
    utString decoded;
    stoEncodeEitherToLocal().encode_string(raw, bytes.data() + bytes.size(), decoded);
    if (raw < bytes.data() || raw > bytes.data() + bytes.size())
        fail("the encoder moved the cursor outside the input", text);
}

void check_byte_array(std::string const& text)
{
    stoByteArray original(reinterpret_cast<unsigned char const*>(text.data()), static_cast<int>(text.size()));
    std::ostringstream os;
    sto_write_ascii_stoByteArray(os, original);
    std::string const lines = os.str();
    char const* cursor = lines.data();
    stoByteArray back;
    sto_read_ascii_stoByteArray(cursor, lines.data() + lines.size(), back);
    if (cursor != lines.data() + lines.size())
        fail("decoding Base64 lines stopped elsewhere than after the empty line", text);
    if (!(back == original))
        fail("Base64 lines decoded to other bytes", text);

    std::vector<char> bytes(text.begin(), text.end());
    char const* raw = bytes.data();
    stoByteArray decoded;
    sto_read_ascii_stoByteArray(raw, bytes.data() + bytes.size(), decoded);
    if (raw < bytes.data() || raw > bytes.data() + bytes.size())
        fail("the Base64 decoder moved the cursor outside the input", text);
    if (!decoded.invalid() && decoded.size() > (raw - bytes.data() + 3) / 4 * 3)
        fail("the Base64 decoder made more bytes than its characters allow", text);
}

void check_identifier(std::string const& text)
{
    Lexer lexer(text);
    stoReadKey key = lexer.read_identifier();
    for (int i = 0; i < key.length(); ++i)
        if (!is_idchar(key.text()[i]))
            fail("a key holds a byte that is not an identifier byte", text);
    if (lexer.cursor() != lexer.input_end() && is_idchar(*lexer.cursor()))
        fail("a key stopped before the end of its identifier", text);
    std::string copy(key.text() ? key.text() : "", static_cast<std::size_t>(key.length()));
    stoReadKey same(copy.data(), static_cast<int>(copy.size()), 7);
    if (!(key == same) || co_hash(key) != co_hash(same))
        fail("equal keys compare or hash differently", text);
    if (key.string().length() != key.length())
        fail("a key's string differs in length from the key", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size == 0 || size > 1 << 20)
        return 0;
    std::string text(reinterpret_cast<char const*>(data) + 1, size - 1);
    switch (data[0] % 5) {
    case 0: check_number(text); break;
    case 1: check_double_bits(text); break;
    case 2: check_string(text); break;
    case 3: check_byte_array(text); break;
    default: check_identifier(text); break;
    }
    return 0;
}
