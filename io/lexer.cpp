#include "io/lexer.h"

#include "platform/co_hash.h"
#include "support/encoders.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <ostream>
#include <vector>

namespace {

// Classification by ASCII ranges: bytes from 0x80 up are neither letters
// nor digits, whatever the locale, and nothing negative reaches <cctype>.
int is_ascii_digit(char c)
{
    unsigned char u = static_cast<unsigned char>(c);
    return u >= '0' && u <= '9';
}

int is_ascii_letter(char c)
{
    unsigned char u = static_cast<unsigned char>(c);
    return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z');
}

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";

// Byte to its index in the alphabet ("=" is 64); 0 for every other byte.
constexpr std::array<unsigned char, 256> make_base64_table()
{
    std::array<unsigned char, 256> table{};
    for (int i = 0; i < 65; ++i)
        table[static_cast<unsigned char>(kBase64Alphabet[i])] = static_cast<unsigned char>(i);
    return table;
}

constexpr std::array<unsigned char, 256> kBase64Table = make_base64_table();

// The lowest power of ten, 10^-290, whose table entry keeps both halves
// normal (its low half is near 10^-306). From 10^-292 down the low halves
// are subnormal, and the entries drift from 10^-n, by an ulp at 10^-307.
constexpr int kLastFullPower = 290;

}  // namespace

int is_idchar(char c)
{
    return is_ascii_letter(c) || is_ascii_digit(c) || c == '_' || c == '#' || c == '$' || c == '%';
}

// ---------------------------------------------------------------------------
// stoReadKey
// ---------------------------------------------------------------------------

stoReadKey::stoReadKey(const char* text, int length, int line, stoValueHandle* slot)
    : m_text(text), m_length(length < 0 ? 0 : length), m_line(line), m_slot(slot)
{
}

int stoReadKey::operator==(const stoReadKey& other) const
{
    if (invalid() || other.invalid())
        return invalid() && other.invalid();
    return m_length == other.m_length && std::memcmp(m_text, other.m_text, static_cast<std::size_t>(m_length)) == 0;
}

utString stoReadKey::string() const
{
    if (invalid())
        return utString("");
    return utString(utStringArray, m_text, m_length);
}

unsigned int co_hash(const stoReadKey& key)
{
    // Every invalid key hashes alike, as they all compare equal.
    if (key.invalid())
        return co_hash(static_cast<const void*>(nullptr), 0);
    return co_hash(static_cast<const void*>(key.text()), key.length());
}

std::ostream& operator<<(std::ostream& os, const stoReadKey& key)
{
    if (!key.invalid())
        os.write(key.text(), key.length());
    return os;
}

// ---------------------------------------------------------------------------
// stoReadNumber
// ---------------------------------------------------------------------------

stoReadNumber stoReadNumber::s_up[stoReadNumber::kMaxPower + 1];
stoReadNumber stoReadNumber::s_down[stoReadNumber::kMaxPower + 1];
std::atomic<bool> stoReadNumber::s_computed{false};

stoReadNumber::stoReadNumber(stoReadNumberTwoSumTag, double a, double b)
{
    double s = a + b;
    double bb = s - a;
    m_hi = s;
    m_lo = (a - (s - bb)) + (b - bb);
}

stoReadNumber::stoReadNumber(stoReadNumberFastTwoSumTag, double a, double b)
{
    double s = a + b;
    m_hi = s;
    m_lo = b - (s - a);
}

stoReadNumber::stoReadNumber(stoReadNumberTwoProductTag, double a, double b)
{
    double p = a * b;
    volatile double ahi, alo, bhi, blo;
    split(a, ahi, alo);
    split(b, bhi, blo);
    m_hi = p;
    m_lo = alo * blo - (((p - ahi * bhi) - ahi * blo) - alo * bhi);
}

void stoReadNumber::split(double a, volatile double& hi, volatile double& lo)
{
    constexpr double kSplitter = 134217729.0;  // 2^27 + 1
    // Above this the splitting product 134217729 × a would overflow; split
    // a / 2^28 instead and scale both halves back, all exactly.
    constexpr double kSplitLimit = 0x1p996;
    constexpr double kDown = 0x1p-28;
    constexpr double kUp = 0x1p28;
    if (std::fabs(a) > kSplitLimit) {
        volatile double scaled = a * kDown;
        volatile double c = kSplitter * scaled;
        volatile double h = c - (c - scaled);
        hi = h * kUp;
        lo = (scaled - h) * kUp;
        return;
    }
    volatile double c = kSplitter * a;
    hi = c - (c - a);
    lo = a - hi;
}

void stoReadNumber::add(double d)
{
    stoReadNumber s(stoReadNumberTwoSum, m_hi, d);
    *this = stoReadNumber(stoReadNumberFastTwoSum, s.m_hi, m_lo + s.m_lo);
}

void stoReadNumber::fast_add(double d)
{
    *this = stoReadNumber(stoReadNumberFastTwoSum, m_hi, m_lo + d);
}

void stoReadNumber::multiply_by_ten()
{
    stoReadNumber t(stoReadNumberFastTwoSum, m_hi * 8.0, m_hi * 2.0);
    t.fast_add(m_lo * 10.0);
    *this = t;
}

void stoReadNumber::divide_by_ten()
{
    double q = m_hi / 10.0;
    double r = m_hi - q * 8.0;
    r = r - q * 2.0;
    r = (r + m_lo) / 10.0;
    *this = stoReadNumber(stoReadNumberFastTwoSum, q, r);
}

void stoReadNumber::multiply_by(const stoReadNumber& y)
{
    // Near the top of the double range the partial products of the exact
    // product can overflow although the result does not. There the product
    // is formed 2^64 lower and scaled back as a whole, exactly: the result
    // is the same pair, and infinite only when its rounded value overflows.
    constexpr double kLargeProduct = 0x1p1000;
    double plain = m_hi * y.m_hi;
    if (std::fabs(plain) > kLargeProduct) {
        stoReadNumber t;
        t.m_hi = m_hi * 0x1p-64;
        t.m_lo = m_lo * 0x1p-64;
        t.multiply_in_range(y);
        m_hi = t.m_hi * 0x1p64;
        m_lo = t.m_lo * 0x1p64;
        if (!std::isfinite(m_hi)) {
            // An overflow, however far beyond the range, is an infinity of
            // the product's sign; infinite factors give what they give.
            m_hi = std::isnan(plain) ? plain : std::copysign(std::numeric_limits<double>::infinity(), plain);
            m_lo = 0.0;
        }
        return;
    }
    multiply_in_range(y);
}

void stoReadNumber::multiply_in_range(const stoReadNumber& y)
{
    stoReadNumber t(stoReadNumberTwoProduct, m_hi, y.m_hi);
    t.fast_add((m_lo * y.m_hi + m_hi * y.m_lo) + m_lo * y.m_lo);
    *this = t;
}

void stoReadNumber::calculate_exponents()
{
    s_up[0] = stoReadNumber(1.0);
    s_down[0] = stoReadNumber(1.0);
    for (int i = 0; i < kMaxPower; ++i) {
        s_up[i + 1] = s_up[i];
        s_up[i + 1].multiply_by_ten();
        s_down[i + 1] = s_down[i];
        s_down[i + 1].divide_by_ten();
    }
    s_computed.store(true, std::memory_order_release);
}

void stoReadNumber::multiply_by_ten_to_the(int n)
{
    if (!s_computed.load(std::memory_order_acquire)) {
        // A local static runs its initialiser once, other threads waiting.
        static const bool computed = (calculate_exponents(), true);
        (void)computed;
    }
    if (n < -kMaxPower) {
        *this = stoReadNumber();
        return;
    }
    if (n < 0) {
        multiply_by(s_down[-n]);
        return;
    }
    // Beyond the table, whole factors of 10^308 until the number has
    // overflowed (a few rounds at most) or is 0, which stays so.
    while (n > kMaxPower) {
        if (m_hi == 0.0 || !std::isfinite(m_hi))
            return;
        multiply_by(s_up[kMaxPower]);
        n -= kMaxPower;
    }
    if (n > 0)
        multiply_by(s_up[n]);
}

// ---------------------------------------------------------------------------
// Base64 byte arrays
// ---------------------------------------------------------------------------

int sto_read_ascii_stoByteArray(const char*& cursor, const char* end, stoByteArray& out)
{
    const char* begin = cursor;
    const char* p = begin;

    // Measure: characters of the data lines (line ends and carriage returns
    // not counted) and pads, up to the empty line or the end of the input.
    long long total = 0;
    long long pads = 0;
    long long line_count = 0;
    while (p < end) {
        char c = *p++;
        if (c == '\r')
            continue;
        if (c == '\n') {
            if (line_count == 0)
                break;  // the empty line ends the data
            total += line_count;
            line_count = 0;
            continue;
        }
        ++line_count;
        if (c == '=')
            ++pads;
    }
    // A last line cut off by the end of the input still counts.
    total += line_count;
    const char* data_end = p;
    cursor = p;

    long long size = (total + 3) / 4 * 3;
    if (total != 0)
        size -= pads;
    // Pads where they do not belong could make the size negative; the size
    // is also kept within an int (it is never more than the input's).
    if (size < 0)
        size = 0;
    if (size > std::numeric_limits<int>::max())
        size = std::numeric_limits<int>::max();
    out = stoByteArray(static_cast<int>(size));
    unsigned char* bytes = out.array();
    if (size > 0)
        std::memset(bytes, 0, static_cast<std::size_t>(size));

    // Decode groups of four characters, line ends skipped. A last group cut
    // short is completed with "A"s; malformed pads can never make the
    // decoder write beyond the measured size.
    long long at = 0;
    p = begin;
    while (p < data_end) {
        char group[4];
        int n = 0;
        while (n < 4 && p < data_end) {
            char c = *p++;
            if (c == '\r' || c == '\n')
                continue;
            group[n++] = c;
        }
        if (n == 0)
            break;
        for (int i = n; i < 4; ++i)
            group[i] = 'A';
        unsigned int bits = 0;
        for (int i = 0; i < 4; ++i)
            bits = (bits << 6) | (kBase64Table[static_cast<unsigned char>(group[i])] % 64u);
        if (at < size)
            bytes[at++] = static_cast<unsigned char>(bits >> 16);
        if (group[2] != '=') {
            if (at < size)
                bytes[at++] = static_cast<unsigned char>(bits >> 8);
            if (group[3] != '=' && at < size)
                bytes[at++] = static_cast<unsigned char>(bits);
        }
    }
    return 1;
}

// ---------------------------------------------------------------------------
// stoReadLexer
// ---------------------------------------------------------------------------

stoReadLexer::stoReadLexer(std::ostream* diagnostics, const stoEncoder* encoder)
    : m_diagnostics(diagnostics), m_encoder(encoder)
{
}

void stoReadLexer::set_input(const char* start, int length)
{
    if (start == nullptr || length < 0)
        length = 0;
    m_start = start;
    m_end = start ? start + length : start;
    m_cursor = start;
    m_line = 1;
}

void stoReadLexer::set_cursor(const char* position)
{
    if (position < m_start)
        position = m_start;
    if (position > m_end)
        position = m_end;
    m_cursor = position;
}

void stoReadLexer::count_lines_from(const char* from)
{
    for (const char* p = from; p < m_cursor; ++p)
        if (*p == '\n')
            ++m_line;
}

int stoReadLexer::absorb()
{
    if (m_cursor >= m_end) {
        error("Unexpected end of file\n");
        return -1;
    }
    int c = peekc();
    if (*m_cursor++ == '\n')
        ++m_line;
    return c;
}

void stoReadLexer::absorb(char c)
{
    if (m_cursor < m_end && *m_cursor == c) {
        ++m_cursor;
        if (c == '\n')
            ++m_line;
        return;
    }
    int found = peekc();
    error("Expected a '%c' but got a '%c' 0x%02x\n", c, found, static_cast<unsigned int>(found));
}

void stoReadLexer::absorb_new_line()
{
    int c = peekc();
    if (c == '\n') {
        absorb('\n');
    } else if (c == '\r') {
        absorb('\r');
        absorb('\n');
    } else {
        error("Expected a new line, but got a '%c' 0x%02x\n", c, static_cast<unsigned int>(c));
    }
}

utString stoReadLexer::skip_line()
{
    const char* from = m_cursor;
    std::size_t left = static_cast<std::size_t>(m_end - m_cursor);
    const char* feed = left ? static_cast<const char*>(std::memchr(m_cursor, '\n', left)) : nullptr;
    const char* line_end = feed ? feed : m_end;
    utString line(utStringArray, from ? from : "", static_cast<int>(line_end - from));
    m_cursor = line_end;
    if (feed) {
        ++m_cursor;
        ++m_line;
    }
    return line;
}

stoReadKey stoReadLexer::read_identifier()
{
    const char* from = m_cursor;
    while (m_cursor < m_end && is_idchar(*m_cursor))
        ++m_cursor;
    return stoReadKey(from, static_cast<int>(m_cursor - from), m_line);
}

int stoReadLexer::read_digit_sequence(long long& whole, stoReadNumber& exact)
{
    // Unsigned, so that the accumulation wraps instead of overflowing.
    unsigned long long value = 0;
    int count = 0;
    // While exact is a whole number below 2^53 with a zero low half, ten
    // times it plus a digit is again exactly such a number, whichever way
    // it is formed: the digits are gathered as an integer until the next
    // one would reach 2^53, and only the rest go through the double-double
    // steps.
    constexpr unsigned long long kExactLimit = 1ull << 53;
    bool gathering = exact.lo() == 0.0 && exact.hi() >= 0.0 && exact.hi() < 0x1p53 &&
                     exact.hi() == std::floor(exact.hi());
    unsigned long long gathered = gathering ? static_cast<unsigned long long>(exact.hi()) : 0;
    while (m_cursor < m_end && is_ascii_digit(*m_cursor)) {
        unsigned int d = static_cast<unsigned int>(*m_cursor++ - '0');
        value = value * 10u + d;
        if (gathering && gathered <= (kExactLimit - 1 - d) / 10) {
            gathered = gathered * 10 + d;
        } else {
            if (gathering) {
                exact = stoReadNumber(static_cast<double>(gathered));
                gathering = false;
            }
            exact.multiply_by_ten();
            exact.add(static_cast<double>(d));
        }
        ++count;
    }
    if (gathering)
        exact = stoReadNumber(static_cast<double>(gathered));
    whole = static_cast<long long>(value);
    return count;
}

long long stoReadLexer::read_integer(stoReadNumber& exact)
{
    bool negative = false;
    int c = peekc();
    if (c == '+') {
        ++m_cursor;
    } else if (c == '-') {
        ++m_cursor;
        negative = true;
    }
    exact = stoReadNumber();
    long long whole = 0;
    if (read_digit_sequence(whole, exact) == 0)
        error("Expecting digit sequence in integer\n");
    unsigned long long magnitude = static_cast<unsigned long long>(whole);
    return static_cast<long long>(negative ? 0u - magnitude : magnitude);
}

double stoReadLexer::read_double(int sign, stoReadNumber exact)
{
    // The scale is kept in 64 bits: digit count and exponent are each an
    // int, their sum need not be.
    long long scale = 0;
    if (peekc() == '.') {
        ++m_cursor;
        long long ignored = 0;
        scale = -static_cast<long long>(read_digit_sequence(ignored, exact));
    }
    int c = peekc();
    if (c == 'e' || c == 'E') {
        ++m_cursor;
        stoReadNumber unused;
        long long x = read_integer(unused);
        if (x < std::numeric_limits<std::int32_t>::min() || x > std::numeric_limits<std::int32_t>::max())
            error("exponent too large\n");
        scale += static_cast<std::int32_t>(x);  // the low 32 bits
    }
    if (scale > stoReadNumber::kMaxPower) {
        error("number out of range\n");
        return 0.0;
    }
    if (scale < -stoReadNumber::kMaxPower) {
        exact = stoReadNumber();  // below the table the number is 0
    } else if (scale < -kLastFullPower) {
        // The smallest powers of the table hold their low half in the
        // subnormal range and have lost the precision that exact rounding
        // needs; apply them in two steps through a full one. Results this
        // small would have a subnormal low half as well, so the product is
        // formed 2^128 higher (unless the digits are huge, which makes the
        // result large) and scaled back once rounded: exactly, unless the
        // result is itself subnormal.
        const bool lift = std::fabs(exact.value()) < 0x1p512;
        if (lift)
            exact.multiply_by(stoReadNumber(0x1p128));  // exact: a power of two
        exact.multiply_by_ten_to_the(static_cast<int>(scale) + kLastFullPower);
        exact.multiply_by_ten_to_the(-kLastFullPower);
        if (lift)
            exact = stoReadNumber(exact.value() * 0x1p-128);
    } else {
        exact.multiply_by_ten_to_the(static_cast<int>(scale));
    }
    double value = exact.value();
    if (!std::isfinite(value)) {
        error("number out of range\n");
        return 0.0;
    }
    return value * sign;
}

int stoReadLexer::read_number(long long& integer, double& real)
{
    if (peekc() == '.') {
        real = read_double(1, stoReadNumber());
        return 0;
    }
    int sign = peekc() == '-' ? -1 : 1;
    stoReadNumber exact;
    long long whole = read_integer(exact);
    int c = peekc();
    if (c == '.' || c == 'e' || c == 'E') {
        real = read_double(sign, exact);
        return 0;
    }
    // Both limits are 2^63 in doubles: the nearest double to 2^63 - 1 is
    // 2^63, and so is 2^63 itself.
    double limit = static_cast<double>(std::numeric_limits<long long>::max());
    if (sign < 0)
        limit += 1.0;
    double magnitude = exact.value();
    if (!std::isfinite(magnitude)) {
        error("number out of range\n");
        real = 0.0;
        return 0;
    }
    if (magnitude > limit) {
        real = magnitude * sign;
        return 0;
    }
    integer = whole;
    return 1;
}

utString stoReadLexer::read_string()
{
    utString result;
    int ok = 0;
    if (m_encoder) {
        ok = m_encoder->encode_string(m_cursor, m_end, result);
    } else {
        static const stoNullEncoder plain;
        ok = plain.encode_string(m_cursor, m_end, result);
    }
    // Whatever the encoder did, the cursor stays within the input. The line
    // number is left alone: a literal written by the writer never holds a
    // line feed, and one that runs on without its closing quote is reported
    // on the line where it began, as is whatever goes wrong after it.
    set_cursor(m_cursor);
    if (!ok) {
        error("string format");
        return utString();
    }
    return result;
}

stoByteArray stoReadLexer::read_byte_array()
{
    stoByteArray result;
    const char* from = m_cursor;
    if (!sto_read_ascii_stoByteArray(m_cursor, m_end, result))
        error("byte array format");
    count_lines_from(from);
    return result;
}

void stoReadLexer::error(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    verror(format, args);
    va_end(args);
}

void stoReadLexer::verror(const char* format, va_list args)
{
    ++m_error_count;
    m_error_flag = 1;
    if (!m_diagnostics)
        return;
    try {
        char small[256];
        va_list copy;
        va_copy(copy, args);
        int n = std::vsnprintf(small, sizeof small, format, copy);
        va_end(copy);
        std::ostream& os = *m_diagnostics;
        os << "Error on line " << m_line << ": ";
        if (n >= static_cast<int>(sizeof small)) {
            std::vector<char> large(static_cast<std::size_t>(n) + 1);
            std::vsnprintf(large.data(), large.size(), format, args);
            os.write(large.data(), n);
        } else if (n > 0) {
            // write, not <<: a "%c" of a zero byte is part of the message.
            os.write(small, n);
        }
        os.flush();
    } catch (...) {
        // A failing diagnostic stream must not stop the reading.
    }
}
