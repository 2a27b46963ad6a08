// The reader's character level: cursor, line ends and the exact reports, identifiers and keys, number
// literals against strtod and %.17g, the power tables of stoReadNumber, strings through an encoder, and
// Base64 against an encoder written here; every text sits in a buffer of its exact size.
#include "test_support.h"

#include "io/lexer.h"

#include "support/encoders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

// The library's literal decoder, counting its calls so that the tests see the lexer going through it.
struct TestEncoder : stoEncoder {
    int encode_string(const char*& cursor, const char* end, utString& out) const override
    {
        ++calls;
        return stoNullEncoder().encode_string(cursor, end, out);
    }
    mutable int calls = 0;
};

// A lexer over a private heap copy exactly as long as the text, so that the sanitizers catch any read at
// or past the end. Exposes the protected interface and collects the reports.
class TestLexer : public stoReadLexer {
public:
    explicit TestLexer(std::string_view text, const stoEncoder* encoder = &default_encoder())
        : stoReadLexer(&m_diagnostics, encoder), m_buffer(new char[std::max<std::size_t>(text.size(), 1)])
    {
        std::copy(text.begin(), text.end(), m_buffer.get());
        set_input(m_buffer.get(), static_cast<int>(text.size()));
    }
    static const TestEncoder& default_encoder()
    {
        static const TestEncoder encoder;
        return encoder;
    }
    using stoReadLexer::absorb, stoReadLexer::absorb_new_line, stoReadLexer::at_end, stoReadLexer::e,
        stoReadLexer::error, stoReadLexer::line_number, stoReadLexer::peekc, stoReadLexer::read_byte_array,
        stoReadLexer::read_identifier, stoReadLexer::read_number, stoReadLexer::read_string,
        stoReadLexer::set_cursor, stoReadLexer::skip_line;

    std::size_t consumed() const { return static_cast<std::size_t>(cursor() - m_buffer.get()); }
    const char* buffer() const { return m_buffer.get(); }
    std::string reports() const { return m_diagnostics.str(); }

private:
    std::ostringstream m_diagnostics;
    std::unique_ptr<char[]> m_buffer;
};

std::uint64_t bits_of(double d) { return std::bit_cast<std::uint64_t>(d); }

// Doubles mapped onto integers in their order, so that neighbours differ by 1.
std::uint64_t ulp_distance(double a, double b)
{
    auto ordered = [](double d) {
        std::uint64_t bits = bits_of(d), sign = std::uint64_t(1) << 63;
        return (bits & sign) ? ~bits : bits | sign;
    };
    std::uint64_t x = ordered(a), y = ordered(b);
    return x > y ? x - y : y - x;
}

std::string printed(double d)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.17g", d);
    return text;
}

// What a number literal reads as: its kind, value, the bytes consumed and the reports.
struct NumberRead {
    explicit NumberRead(std::string_view text) : lexer(text)
    {
        is_integer = lexer.read_number(integer, real);
        errors = lexer.error_count();
        consumed = lexer.consumed();
    }
    // The value in a double-typed place: integers convert.
    double value() const { return is_integer ? static_cast<double>(integer) : real; }

    TestLexer lexer;
    int is_integer = 0, errors = 0;
    long long integer = 0;
    double real = 0.0;
    std::size_t consumed = 0;
};

std::vector<unsigned char> bytes_of(const stoByteArray& a) { return {a.array(), a.array() + a.size()}; }

// --- Cursor, line ends and reports ---

TEST(Lexer, CursorPeeksStaysInsideAndSkipsLines)
{
    TestLexer lexer(std::string("a\x80\xff", 3));
    for (int expected : {int('a'), -128}) {
        EXPECT_EQ(lexer.peekc(), expected);
        EXPECT_EQ(lexer.absorb(), expected);
    }
    EXPECT_EQ(lexer.peekc(), -1);  // 0xFF looks like the end
    EXPECT_FALSE(lexer.at_end());
    lexer.absorb();
    EXPECT_EQ(lexer.absorb(), -1);
    EXPECT_EQ(lexer.consumed(), 3u);

    // The cursor can be set only within the input.
    TestLexer abc("abc");
    abc.set_cursor(abc.buffer() + 10);
    EXPECT_TRUE(abc.at_end());
    abc.set_cursor(abc.buffer() - 1);
    EXPECT_EQ(abc.consumed(), 0u);
    abc.set_cursor(abc.buffer() + 2);
    EXPECT_EQ(abc.peekc(), 'c');

    // A skipped line is answered without its line feed.
    TestLexer lines("STO1\r\nroot=annDocument\nlast");
    for (const char* line : {"STO1\r", "root=annDocument", "last"})
        EXPECT_EQ(lines.skip_line(), line);
    EXPECT_TRUE(lines.at_end());
    EXPECT_EQ(lines.line_number(), 3);
    EXPECT_EQ(lines.skip_line().length(), 0);
}

TEST(Lexer, ExpectedCharactersAndLineEnds)
{
    // ops: 'N' absorbs a line end, '.' any character, any other character is expected. A failed
    // expectation consumes nothing, except that a carriage return is taken before the line feed it lacks.
    struct Case {
        std::string_view text;
        const char *ops, *reports;
        std::size_t consumed;
        int line;
    } cases[] = {
        {"a\nb", "....", "Error on line 2: Unexpected end of file\n", 3, 2},
        {"=x", "==", "Error on line 1: Expected a '=' but got a 'x' 0x78\n", 1, 1},
        {"\xc3", "\"", "Error on line 1: Expected a '\"' but got a '\xc3' 0xffffffc3\n", 0, 1},
        {"", ")", "Error on line 1: Expected a ')' but got a '\xff' 0xffffffff\n", 0, 1},
        {"\n\r\nx", "NN", "", 3, 3},
        {"\rx", "N", "Error on line 1: Expected a '\n' but got a 'x' 0x78\n", 1, 1},
        {"\r", "N", "Error on line 1: Expected a '\n' but got a '\xff' 0xffffffff\n", 1, 1},
        {"\x90", "N", "Error on line 1: Expected a new line, but got a '\x90' 0xffffff90\n", 0, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "text \"" << c.text << "\" ops " << c.ops);
        TestLexer lexer(c.text);
        for (const char* op = c.ops; *op; ++op)
            *op == 'N' ? lexer.absorb_new_line() : *op == '.' ? void(lexer.absorb()) : lexer.absorb(*op);
        EXPECT_EQ(lexer.reports(), c.reports);
        EXPECT_EQ(lexer.error_count(), *c.reports ? 1 : 0);
        EXPECT_EQ(lexer.consumed(), c.consumed);
        EXPECT_EQ(lexer.line_number(), c.line);
    }
}

TEST(Lexer, ReportsFormatCarryTheLineNumberAndAreCounted)
{
    TestLexer lexer("\n\n");
    lexer.absorb('\n');
    lexer.absorb('\n');
    EXPECT_EQ(lexer.e(), 0);
    lexer.error("Can't find meta type called '%s'\n", "stoNothing");
    lexer.error("string format");
    lexer.error("%d and %c\n", 42, 'z');
    std::string name(5000, 'n');  // long reports are written whole
    lexer.error("Non class meta type '%s'\n", name.c_str());
    EXPECT_EQ(lexer.reports(), "Error on line 3: Can't find meta type called 'stoNothing'\n"
                               "Error on line 3: string formatError on line 3: 42 and z\n"
                               "Error on line 3: Non class meta type '" + name + "'\n");
    EXPECT_EQ(lexer.e(), 1);
    EXPECT_EQ(lexer.e(), 0);
    EXPECT_EQ(lexer.error_count(), 4);  // the count is never cleared

    struct Silent : stoReadLexer {
        Silent() : stoReadLexer(nullptr, nullptr) { set_input("x", 1); }
        void fail() { absorb('y'); }
    } silent;
    silent.fail();
    EXPECT_EQ(silent.error_count(), 1);  // counted without a stream
}

TEST(Lexer, IdentifiersAndKeys)
{
    for (int b = 0; b < 256; ++b)
        EXPECT_EQ(is_idchar(static_cast<char>(b)) != 0, std::isalnum(b) || (b && std::strchr("_#$%", b)))
            << "byte " << b;

    // The longest run, not copied, possibly empty; {text, run, the byte after it}.
    struct Case {
        std::string_view text, run;
        int next;
    } cases[] = {{"store_1#$37=stoSchema(%$8,&%$7)\n", "store_1#$37", '='},
                 {"ab\xc3\xa9x", "ab", static_cast<signed char>('\xc3')}, {"#12", "#12", -1}, {"(x", "", '('}};
    for (const Case& c : cases) {
        TestLexer lexer(c.text);
        stoReadKey key = lexer.read_identifier();
        EXPECT_EQ(std::string_view(key.text(), static_cast<std::size_t>(key.length())), c.run);
        EXPECT_EQ(key.text(), lexer.buffer());
        EXPECT_EQ(key.invalid(), c.run.empty());
        EXPECT_EQ(lexer.peekc(), c.next);
    }

    // Keys compare and hash their bytes only.
    const char text[] = "store_1 store_1#$37 store_1";
    stoReadKey a(text, 7, 1), longer(text + 8, 11, 2), same(text + 20, 7, 9, (stoValueHandle*)0x10);
    EXPECT_TRUE(a == same);
    EXPECT_EQ(co_hash(a), co_hash(same));
    EXPECT_EQ(co_hash(a), co_hash(text, 7));
    EXPECT_FALSE(a == longer || longer == a || a == stoReadKey("store_2", 7, 1));

    // Invalid keys: no text, no bytes or a negative length; all equal.
    stoReadKey none, empty(text, 0, 3), null_text(nullptr, 4, 3), negative(text, -2, 1);
    for (const stoReadKey* k : {&none, &empty, &null_text, &negative}) {
        EXPECT_TRUE(k->invalid());
        EXPECT_TRUE(*k == none);
        EXPECT_FALSE(*k == a || a == *k);
    }
    EXPECT_EQ(co_hash(none), co_hash(null_text));
    EXPECT_TRUE(none.string().length() == 0 && !none.string().is_null());

    std::ostringstream os;
    os << stoReadKey("#12=int:42", 3, 5) << '|' << stoReadKey();
    EXPECT_EQ(os.str(), "#12|");
}

TEST(LexerNumber, Literals)
{
    constexpr long long kMax = std::numeric_limits<long long>::max();
    constexpr long long kMin = std::numeric_limits<long long>::min();
    constexpr double kLargest = std::numeric_limits<double>::max();
    const std::string range = "Error on line 1: number out of range\n";
    const std::string exponent = "Error on line 1: exponent too large\n";
    const std::string digits = "Error on line 1: Expecting digit sequence in integer\n";
    const std::string huge_integer = "1" + std::string(400, '0');
    const std::string hundred_thousand = "1" + std::string(100000, '0');
    struct Case {
        std::string text;
        int is_integer;
        long long integer;  // checked for integers
        double real;        // checked bit for bit; an integer leaves it alone
        std::string reports = "";
        std::size_t consumed = std::string::npos;  // npos: the whole literal
    };
    const Case cases[] = {
        {"-17,", 1, -17, 0.0, "", 3}, {"+0)", 1, 0, 0.0, "", 2},
        {"9223372036854775807", 1, kMax, 0.0}, {"-9223372036854775808", 1, kMin, 0.0},
        // Equal to the limit in doubles: an integer, wrapped.
        {"9223372036854775809", 1, kMin + 1, 0.0}, {"-9223372036854775809", 1, kMax, 0.0},
        {"18446744073709551616", 0, 0, 1.8446744073709552e19},
        {"123456789012345678901234567890", 0, 0, 123456789012345678901234567890.0},
        {"42.", 0, 0, 42.0}, {"4.2e1", 0, 0, 42.0}, {".5", 0, 0, 0.5}, {"-0.0", 0, 0, -0.0},
        {"1e308", 0, 0, 1e308},  // the top of the power table, whose split needs care
        {"1.7976931348623157e308", 0, 0, kLargest}, {"-1.7976931348623157e308", 0, 0, -kLargest},
        // Below the threshold of overflow, which is half an ulp above the largest.
        {"1.7976931348623158e308", 0, 0, kLargest},
        {"2.2250738585072014e-292", 0, 0, 2.2250738585072014e-292},
        // The scale is what counts, not the exponent: the fraction's digits continue the digit string.
        {"0.001e309", 0, 0, 1e306}, {"0." + std::string(400, '0') + "1e401", 0, 0, 1.0},
        // Scales below the table give zero, keeping the sign.
        {"22250738585072014e-324", 0, 0, 0.0}, {"-1e-400", 0, 0, -0.0}, {"0.0000001e-305", 0, 0, 0.0},
        {"1e-2147483648", 0, 0, 0.0},
        // A hundred thousand digits overflow the pair; the scale brings them back.
        {hundred_thousand + "e-100000", 0, 0, 0.0},
        // Out of range: reported, zero, consumed whole.
        {"1e309", 0, 0, 0.0, range}, {"1.7976931348623159e308", 0, 0, 0.0, range},
        {"-1e400", 0, 0, 0.0, range}, {"0e309", 0, 0, 0.0, range}, {"1e2147483647", 0, 0, 0.0, range},
        {huge_integer, 0, 0, 0.0, range}, {"0." + hundred_thousand + "e100001", 0, 0, 0.0, range},
        // Exponents beyond 32 bits are truncated to them: 3000000000 to -1294967296 (below the table),
        // 4294967297 to 1, 5000000000 to 705032704 and -2147483649 to 2147483647 (beyond it).
        {"1e3000000000", 0, 0, 0.0, exponent}, {"2e4294967297", 0, 0, 20.0, exponent},
        {"1e5000000000", 0, 0, 0.0, exponent + range}, {"5e-2147483649", 0, 0, 0.0, exponent + range},
        // A sign, and an exponent, need digits; what was read stands.
        {"-.5", 0, 0, -0.5, digits}, {"+x", 1, 0, 0.0, digits, 1},
        {"1e", 0, 0, 1.0, digits}, {"1e+,", 0, 0, 1.0, digits, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text.size() > 60 ? c.text.substr(0, 60) + "..." : c.text);
        NumberRead r(c.text);
        EXPECT_EQ(r.lexer.reports(), c.reports);
        EXPECT_EQ(r.errors, std::count(c.reports.begin(), c.reports.end(), '\n'));
        EXPECT_EQ(r.consumed, c.consumed == std::string::npos ? c.text.size() : c.consumed);
        EXPECT_EQ(r.is_integer, c.is_integer);
        if (c.is_integer) {
            EXPECT_EQ(r.integer, c.integer);
        }
        EXPECT_EQ(bits_of(r.real), bits_of(c.real)) << printed(r.real);
    }

    // Exponent digits beyond 64 bits wrap without harm.
    NumberRead r("1e99999999999999999999999999999");
    EXPECT_GE(r.errors, 1);
    EXPECT_EQ(r.consumed, 31u);

    // Every prefix of these literals ends exactly at the end of a buffer.
    for (std::string text : {"-123.456e-7", "9223372036854775807", ".5E+3", "1e3000000000"})
        for (std::size_t n = 0; n <= text.size(); ++n)
            EXPECT_LE(NumberRead(std::string_view(text).substr(0, n)).consumed, n);
}

TEST(ReadNumber, PowersOfTenAgreeWithStrtodAndScaleBeyondTheTables)
{
    auto scaled = [](double x, int power) {
        stoReadNumber s(x);
        s.multiply_by_ten_to_the(power);
        return s;
    };
    // The table's last entries lose precision in the subnormal range (10^-307 is an ulp off); the lexer
    // goes around them.
    for (int power = -stoReadNumber::kMaxPower; power <= stoReadNumber::kMaxPower; ++power) {
        std::string text = "1e" + std::to_string(power);
        EXPECT_EQ(NumberRead(text).real, std::strtod(text.c_str(), nullptr)) << text;
    }

    // Outside the tables: below gives zero, above is scaled in steps the table holds.
    EXPECT_TRUE(scaled(5.0, -309).hi() == 0.0 && scaled(5.0, -309).lo() == 0.0);
    EXPECT_EQ(scaled(5.0, std::numeric_limits<int>::min()).value(), 0.0);
    EXPECT_NEAR(scaled(1e-200, 400).value(), 1e200, 1e186);
    EXPECT_EQ(scaled(1.0, std::numeric_limits<int>::max()).value(), std::numeric_limits<double>::infinity());
    EXPECT_EQ(scaled(-2.0, 1000).value(), -std::numeric_limits<double>::infinity());
    EXPECT_EQ(scaled(0.0, std::numeric_limits<int>::max()).value(), 0.0);
}

TEST(Lexer, StringsGoThroughTheEncoder)
{
    TestEncoder encoder;
    TestLexer lexer("\"a\\x41\\x4a\\n\\\"\\\\\",@,\"\"", &encoder);
    EXPECT_EQ(lexer.read_string(), "aA\x40n\"\\");
    lexer.absorb(',');
    EXPECT_TRUE(lexer.read_string().is_null());
    lexer.absorb(',');
    utString empty = lexer.read_string();
    EXPECT_TRUE(!empty.is_null() && empty.length() == 0);
    EXPECT_EQ(encoder.calls, 3);
    EXPECT_EQ(lexer.error_count(), 0);

    // Without an encoder the bytes are taken as they are.
    TestLexer raw("\"x\\x41\"", nullptr);
    EXPECT_EQ(raw.read_string(), "xA");

    // Line feeds inside strings are not counted; the one after it is.
    TestLexer lines("\"a\nb\"\nx");
    EXPECT_EQ(lines.read_string(), "a\nb");
    EXPECT_EQ(lines.line_number(), 1);
    lines.absorb_new_line();
    EXPECT_EQ(lines.line_number(), 2);

    for (const char* text : {"\"abc", "abc", ""}) {  // malformed
        SCOPED_TRACE(text);
        TestLexer bad(text);
        EXPECT_TRUE(bad.read_string().is_null());
        EXPECT_EQ(bad.reports(), "Error on line 1: string format");
        EXPECT_EQ(bad.error_count(), 1);
        EXPECT_LE(bad.consumed(), std::strlen(text));
    }
}

TEST(LexerByteArray, DecodingAndRoundTrips)
{
    // Each is read to its end, through the empty line that ends the data.
    struct Case {
        std::string_view text;
        int size;
        std::string_view bytes;  // null: not checked
    } cases[] = {
        {"", 0, ""},
        {"****\n\n", 3, std::string_view("\0\0\0", 3)},  // bytes outside the alphabet count as "A"
        {"\xff\x80YQ\n\n", 3, std::string_view("\0\x06\x10", 3)},
        // Sizes follow the measure (characters and pads), never the groups.
        {"========\n\n", 0, ""}, {"Y=QQ\n\n", 2, {}}, {"YQ=A\n\n", 2, std::string_view("a\0", 2)},
        {"YWJjZ\n\n", 6, {}}, {"YW\nJj\n\n", 3, "abc"},
        {"YWJj\nYQ==", 4, "abca"},  // no empty line: the data runs to the end of the input
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        TestLexer lexer(c.text);
        stoByteArray a = lexer.read_byte_array();
        EXPECT_EQ(lexer.error_count(), 0);
        EXPECT_FALSE(a.invalid());
        EXPECT_EQ(a.size(), c.size);
        if (c.bytes.data()) {
            EXPECT_EQ(bytes_of(a), std::vector<unsigned char>(c.bytes.begin(), c.bytes.end()));
        }
        EXPECT_EQ(lexer.consumed(), c.text.size());
    }

    // Round trips of many lengths and both line ends, counting the lines.
    std::mt19937 random(20240601);
    for (int n = 0; n <= 400; ++n) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(n));
        for (auto& b : bytes)
            b = static_cast<unsigned char>(random());
        for (const char* line_end : {"\n", "\r\n"}) {
            std::string block = sto_test::base64_block(bytes, line_end);
            TestLexer lexer(block + "}!\n");
            EXPECT_EQ(bytes_of(lexer.read_byte_array()), bytes) << n << " bytes";
            EXPECT_EQ(lexer.consumed(), block.size()) << n << " bytes";
            EXPECT_EQ(lexer.line_number(), 1 + std::count(block.begin(), block.end(), '\n')) << n;
            EXPECT_EQ(lexer.error_count(), 0);
        }
    }
}

// --- Accuracy of the decimal conversion ---

// The scale of a literal: its exponent less the digits after its point.
long long scale_of(const std::string& literal)
{
    std::size_t point = literal.find('.'), exponent = std::min(literal.find_first_of("eE"), literal.size());
    long long scale = exponent < literal.size() ? std::strtoll(&literal[exponent + 1], nullptr, 10) : 0;
    return point == std::string::npos ? scale : scale - static_cast<long long>(exponent - point - 1);
}

TEST(LexerAccuracy, PrintedDoublesReadBackToTheSameBits)
{
    // Every finite double, printed with 17 significant digits, reads back exactly when the literal's scale
    // is within the power tables; below them (values under about 1e-292) the literal reads as zero. First
    // the special values and the ends of the range.
    constexpr double kLargest = std::numeric_limits<double>::max();
    std::vector<double> samples = {0.0, 0.1, 1.0 / 3.0, -2.5, 1e-292, kLargest, -kLargest, 9007199254740993.0,
                                   std::numeric_limits<double>::min() * 1e16, 5e-324 * 1e20};
    std::mt19937_64 random(0x5EED5EEDu);
    while (samples.size() < 200000)
        if (double x = std::bit_cast<double>(random()); std::isfinite(x))
            samples.push_back(x);
    int within = 0, mismatches = 0, below_not_zero = 0;
    for (double x : samples) {
        std::string text = printed(x);
        NumberRead r(text);
        ASSERT_EQ(r.errors, 0) << text;
        if (scale_of(text) < -stoReadNumber::kMaxPower) {
            below_not_zero += r.value() != 0.0;
        } else if (++within, bits_of(r.value()) != bits_of(x) && ++mismatches <= 10) {
            ADD_FAILURE() << text << " read as " << printed(r.value());
        }
    }
    EXPECT_EQ(mismatches, 0);
    EXPECT_EQ(below_not_zero, 0);
    EXPECT_GT(within, 180000);
}

TEST(LexerAccuracy, RandomLiteralsAgreeWithStrtod)
{
    // Random digit strings of 1 to 25 digits with a point anywhere (or none, or a trailing one) and an
    // exponent that keeps the scale within the tables and the value below 10^308. Correct rounding is
    // missed only when a literal lies extremely close to the midpoint between two doubles, and then by one
    // ulp.
    std::mt19937_64 random(0xD1617u);
    const int samples = 200000;
    int disagreements = 0;
    for (int i = 0; i < samples; ++i) {
        int n = 1 + static_cast<int>(random() % 25);
        std::string digits;
        for (int k = 0; k < n; ++k)
            digits += static_cast<char>('0' + random() % 10);
        auto point = static_cast<std::size_t>(random() % static_cast<std::uint64_t>(n + 1));  // n: none
        const int lowest = -stoReadNumber::kMaxPower, highest = stoReadNumber::kMaxPower - n;
        long long scale = lowest + static_cast<long long>(random() % std::uint64_t(highest - lowest + 1));
        long long exponent = scale + (n - static_cast<long long>(point));

        std::string literal = random() % 3 == 0 ? "-" : random() % 4 == 0 ? "+" : "";
        std::string whole = digits.substr(0, point);
        if (whole.empty() && (!literal.empty() || random() % 2))
            whole = "0";  // a leading point, unless after a sign, which needs a digit
        literal += whole;
        if (point < digits.size() || random() % 2)
            literal += "." + digits.substr(point);
        if (exponent != 0 || literal.find('.') == std::string::npos || random() % 2)
            literal += std::string(random() % 2 ? "e" : "E") + (exponent >= 0 && random() % 2 ? "+" : "") +
                       std::to_string(exponent);

        NumberRead r(literal);
        ASSERT_EQ(r.errors, 0) << literal << ": " << r.lexer.reports();
        ASSERT_EQ(r.consumed, literal.size()) << literal;
        ASSERT_EQ(r.is_integer, 0) << literal;
        double expected = std::strtod(literal.c_str(), nullptr);
        std::uint64_t ulps = ulp_distance(r.real, expected);
        disagreements += ulps != 0;
        EXPECT_LE(ulps, 1u) << literal << ": read " << printed(r.real) << ", strtod " << printed(expected);
    }
    EXPECT_LE(disagreements, samples / 10000);
}

}  // namespace
