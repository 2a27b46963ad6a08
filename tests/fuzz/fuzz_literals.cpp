// libFuzzer target for the literal decoders of the reader. The first byte
// picks a decoder, the rest is its input. Beyond "no crash", each mode checks
// what must hold for every input:
//
//   0  number literal: a number read without a report is finite; an integer
//      of up to 18 digits is exact; a double with a modest number of digits
//      and a scale well inside the power tables lies within one unit in the
//      last place of the C library's strtod of the same text.
//   1  double bits: the value printed with %.17g, as the writer prints it,
//      reads back to the same bits (minus zero and values whose 17 digits
//      reach below the power tables excepted, as the format has them).
//   2  string bytes: written as a string literal and decoded again they are
//      the same bytes (when they hold no zero byte, which the decoder drops),
//      and the cursor ends after the closing quote; the raw
//      input decoded as a literal keeps the cursor within the input.
//   3  byte-array bytes: written as Base64 lines and decoded again they are
//      the same bytes; the raw input decoded as Base64 never yields more
//      bytes than three for every four characters.
//   4  identifier: a key holds identifier bytes only and ends at the first
//      byte that is not one; equal keys hash alike.
#include <sto.h>

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

// The lexer's protected members, opened for the target.
class Lexer : public stoReadLexer {
public:
    // Over a copy of exactly the text's size, so that a read past its end is
    // caught.
    explicit Lexer(std::string const& text) : stoReadLexer(nullptr, nullptr), m_bytes(text.begin(), text.end())
    {
        set_input(m_bytes.data(), static_cast<int>(m_bytes.size()));
    }
    // The text read so far.
    std::string consumed() const { return std::string(input_start(), cursor()); }
    using stoReadLexer::cursor;
    using stoReadLexer::e;
    using stoReadLexer::input_end;
    using stoReadLexer::input_start;
    using stoReadLexer::read_identifier;
    using stoReadLexer::read_number;

private:
    std::vector<char> m_bytes;
};

// Units in the last place between two finite doubles of the same sign.
std::uint64_t ulps_apart(double a, double b)
{
    std::int64_t ia;
    std::int64_t ib;
    std::memcpy(&ia, &a, sizeof a);
    std::memcpy(&ib, &b, sizeof b);
    return ia > ib ? static_cast<std::uint64_t>(ia - ib) : static_cast<std::uint64_t>(ib - ia);
}

// The shape of the number literal at the start of text, as the reader takes
// it: digit counts and the exponent (clamped, it only gates the checks).
struct Shape {
    int digits = 0;
    int fraction = 0;
    long long exponent = 0;
    bool real = false;
};

Shape shape_of(std::string const& literal)
{
    Shape s;
    std::size_t i = 0;
    if (i < literal.size() && (literal[i] == '+' || literal[i] == '-'))
        ++i;
    for (; i < literal.size() && literal[i] >= '0' && literal[i] <= '9'; ++i)
        ++s.digits;
    if (i < literal.size() && literal[i] == '.') {
        s.real = true;
        for (++i; i < literal.size() && literal[i] >= '0' && literal[i] <= '9'; ++i)
            ++s.fraction;
    }
    if (i < literal.size() && (literal[i] == 'e' || literal[i] == 'E')) {
        s.real = true;
        ++i;
        bool negative = i < literal.size() && literal[i] == '-';
        if (i < literal.size() && (literal[i] == '+' || literal[i] == '-'))
            ++i;
        for (; i < literal.size() && literal[i] >= '0' && literal[i] <= '9'; ++i)
            s.exponent = std::min(s.exponent * 10 + (literal[i] - '0'), 1000000LL);
        if (negative)
            s.exponent = -s.exponent;
    }
    return s;
}

void check_number(std::string const& text)
{
    Lexer lexer(text);
    long long integer = 0;
    double real = 0;
    int is_integer = lexer.read_number(integer, real);
    if (lexer.e())
        return;
    std::string literal = lexer.consumed();
    Shape s = shape_of(literal);
    if (is_integer) {
        if (s.real)
            fail("a literal with a point or exponent read as an integer", text);
        if (s.digits <= 18 && integer != std::strtoll(literal.c_str(), nullptr, 10))
            fail("an integer literal read with the wrong value", text);
        return;
    }
    if (!std::isfinite(real))
        fail("a double read without a report is not finite", text);
    long long scale = s.exponent - s.fraction;
    int significant = s.digits + s.fraction;
    // A lone "." reads as 0, as the format's grammar for a leading point has it.
    if (significant == 0 || significant > 30 || scale < -280 || scale > 280)
        return;
    double expected = std::strtod(literal.c_str(), nullptr);
    if (std::isinf(expected))
        fail("a double beyond the range read without a report", text);
    if (expected == 0.0 ? real != 0.0 : (std::signbit(expected) != std::signbit(real) || ulps_apart(expected, real) > 1))
        fail("a double read more than an ulp away from strtod", text);
}

void check_double_bits(std::string const& text)
{
    if (text.size() < sizeof(double))
        return;
    double x;
    std::memcpy(&x, text.data(), sizeof x);
    // Literals whose decimal scale is below the power tables read as 0: the
    // 17 digits of anything under about 1e-291 reach below 10^-308.
    // Minus zero prints as "-0", an integer literal, which is the integer 0.
    if (!std::isfinite(x) || (x != 0.0 && std::fabs(x) < 1e-291) || (x == 0.0 && std::signbit(x)))
        return;
    char printed[40];
    std::snprintf(printed, sizeof printed, "%.17g", x);
    std::string literal(printed);
    Lexer lexer(literal);
    long long integer = 0;
    double real = 0;
    double back = lexer.read_number(integer, real) ? static_cast<double>(integer) : real;
    if (lexer.e() || lexer.cursor() != lexer.input_end())
        fail("a printed double did not read as one number", literal);
    if (std::memcmp(&back, &x, sizeof x) != 0)
        fail("a printed double read back to other bits", literal);
}

void check_string(std::string const& text)
{
    utString original(utStringArray, text.data(), static_cast<int>(text.size()));
    std::ostringstream os;
    sto_write_ascii_utString(os, original);
    std::string literal = os.str();
    char const* cursor = literal.data();
    utString back;
    if (!stoNullEncoder().encode_string(cursor, literal.data() + literal.size(), back))
        fail("a written string literal did not decode", text);
    if (cursor != literal.data() + literal.size())
        fail("decoding a string literal stopped elsewhere than its end", text);
    // Zero bytes are dropped on purpose: the store's strings are read as
    // zero-terminated text everywhere downstream.
    if (text.find('\0') == std::string::npos && back.view() != original.view())
        fail("a string literal decoded to other bytes", text);

    // Arbitrary text through the reader's own encoder.
    stoEncodeEitherToLocal encoder;
    std::vector<char> bytes(text.begin(), text.end());
    char const* raw = bytes.data();
    char const* end = bytes.data() + bytes.size();
    utString decoded;
    encoder.encode_string(raw, end, decoded);
    if (raw < bytes.data() || raw > end)
        fail("the encoder moved the cursor outside the input", text);
}

void check_byte_array(std::string const& text)
{
    stoByteArray original(reinterpret_cast<unsigned char const*>(text.data()), static_cast<int>(text.size()));
    std::ostringstream os;
    sto_write_ascii_stoByteArray(os, original);
    std::string lines = os.str();
    char const* cursor = lines.data();
    stoByteArray back;
    sto_read_ascii_stoByteArray(cursor, lines.data() + lines.size(), back);
    if (cursor != lines.data() + lines.size())
        fail("decoding Base64 lines stopped elsewhere than after the empty line", text);
    if (!(back == original))
        fail("Base64 lines decoded to other bytes", text);

    std::vector<char> bytes(text.begin(), text.end());
    char const* raw = bytes.data();
    char const* end = bytes.data() + bytes.size();
    stoByteArray decoded;
    sto_read_ascii_stoByteArray(raw, end, decoded);
    if (raw < bytes.data() || raw > end)
        fail("the Base64 decoder moved the cursor outside the input", text);
    long long characters = raw - bytes.data();
    if (!decoded.invalid() && decoded.size() > (characters + 3) / 4 * 3)
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
