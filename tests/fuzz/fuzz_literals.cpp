// libFuzzer target for the literal decoders of the reader. The first byte picks a decoder, the rest is its
// input. Beyond "no crash", each mode checks what must hold for every input:
//   2  string bytes: written as a literal and decoded again they are the same bytes (zero bytes, which the
//      decoder drops, excepted), the cursor ends after the closing quote; the raw input decoded as a literal
//      keeps the cursor within the input.
//   3  Base64: the raw input decoded as a byte array keeps the cursor within the input and never yields more
//      than three bytes for every four characters.
//   else  number literal: a double read without a report is finite.
// The values of numbers, Base64 round trips and identifiers are left to the unit tests, which check them
// against strtod, %.17g, a reference encoder and every byte.
#include <sto.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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
    using stoReadLexer::e, stoReadLexer::read_number;

private:
    std::vector<char> m_bytes;
};

void check_number(std::string const& text)
{
    Lexer lexer(text);
    long long integer = 0;
    double real = 0;
    if (!lexer.read_number(integer, real) && !lexer.e() && !std::isfinite(real))
        fail("a double read without a report is not finite", text);
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
    std::vector<char> bytes(text.begin(), text.end());
    char const* raw = bytes.data();
    stoByteArray decoded;
    sto_read_ascii_stoByteArray(raw, bytes.data() + bytes.size(), decoded);
    if (raw < bytes.data() || raw > bytes.data() + bytes.size())
        fail("the Base64 decoder moved the cursor outside the input", text);
    if (!decoded.invalid() && decoded.size() > (raw - bytes.data() + 3) / 4 * 3)
        fail("the Base64 decoder made more bytes than its characters allow", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size == 0 || size > 1 << 20)
        return 0;
    std::string text(reinterpret_cast<char const*>(data) + 1, size - 1);
    switch (data[0] % 5) {
    case 2: check_string(text); break;
    case 3: check_byte_array(text); break;
    default: check_number(text); break;
    }
    return 0;
}
