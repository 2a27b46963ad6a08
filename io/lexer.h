// The character level of the store-file reader: a cursor over the bytes of a
// file held in memory, line counting, the error report every reader layer
// uses, identifiers as stoReadKey tokens, and the literals of a store file
// (integers, doubles converted exactly by stoReadNumber, strings through a
// string encoder, Base64 byte arrays).
//
//   // In a member of a class derived from stoReadLexer (stoFileReader):
//   set_input(map->start(), map->length());
//   stoReadKey key = read_identifier();
//   absorb('=');
//   if (e())
//       skip_line();   // the report has been written; go on with the next line
//
// Nothing here throws for a malformed input: problems are reported on the
// diagnostic stream as "Error on line N: message", counted, and reading goes
// on. The cursor never moves outside the input.
#pragma once

#include "platform/ut_string.h"
#include "types/basic.h"

#include <atomic>
#include <cstdarg>
#include <iosfwd>

class stoEncoder;
class stoValueHandle;

// 1 for the bytes that make up keys and references: ASCII letters and
// digits, "_", "#", "$" and "%". Bytes from 0x80 up are never identifier
// bytes.
int is_idchar(char c);

// An identifier of a file: a view of its bytes in the input buffer (not
// owned, not terminated), the line it stands on, and the slot holding the
// value of the record it names (null until that record has been read).
// A key with no text or no bytes is invalid; the default key is invalid.
class stoReadKey {
public:
    stoReadKey() = default;
    // A negative length counts as 0.
    stoReadKey(const char* text, int length, int line, stoValueHandle* slot = nullptr);

    // Compares the bytes only: line and slot play no part. Invalid keys are
    // equal to each other and to no valid key.
    int operator==(const stoReadKey& other) const;
    int operator!=(const stoReadKey& other) const { return !(*this == other); }

    int invalid() const { return m_text == nullptr || m_length == 0; }
    const char* text() const { return m_text; }
    int length() const { return m_length; }
    int line_number() const { return m_line; }
    stoValueHandle* slot() const { return m_slot; }
    void set_slot(stoValueHandle* slot) { m_slot = slot; }
    // A copy of the bytes; the empty string for an invalid key.
    utString string() const;

private:
    const char* m_text = nullptr;
    int m_length = 0;
    int m_line = 0;
    stoValueHandle* m_slot = nullptr;
};

// The byte hash of the key's bytes (consistent with operator==).
unsigned int co_hash(const stoReadKey& key);
// Writes the key's bytes.
std::ostream& operator<<(std::ostream& os, const stoReadKey& key);

enum stoReadNumberTwoSumTag { stoReadNumberTwoSum };
enum stoReadNumberFastTwoSumTag { stoReadNumberFastTwoSum };
enum stoReadNumberTwoProductTag { stoReadNumberTwoProduct };

// A number held as the unevaluated sum hi + lo of two doubles, |lo| small
// against |hi|: about 106 bits of precision, enough to accumulate the digits
// of a decimal literal exactly and scale them by a power of ten with an
// error far below half a unit in the last place of the double result, which
// is hi. The error-free transformations rely on plain IEEE double
// arithmetic; the halves of a split pass through volatile doubles so that
// no wider intermediate precision can creep in.
class stoReadNumber {
public:
    // The largest n for which 10^n and 10^-n are in the power tables.
    static constexpr int kMaxPower = 308;

    constexpr stoReadNumber() : m_hi(0.0), m_lo(0.0) {}
    constexpr explicit stoReadNumber(double d) : m_hi(d), m_lo(0.0) {}
    constexpr stoReadNumber(const stoReadNumber&) = default;
    constexpr stoReadNumber& operator=(const stoReadNumber&) = default;
    // a + b exactly, for any a and b.
    stoReadNumber(stoReadNumberTwoSumTag, double a, double b);
    // a + b exactly, provided |a| >= |b| (or a is 0).
    stoReadNumber(stoReadNumberFastTwoSumTag, double a, double b);
    // a * b exactly, barring underflow.
    stoReadNumber(stoReadNumberTwoProductTag, double a, double b);

    void add(double d);
    // Exact to about 2^-104 relative over the whole double range; an
    // overflowing product becomes an infinity.
    void multiply_by(const stoReadNumber& y);
    void multiply_by_ten();
    void divide_by_ten();
    // Scales by 10^n from the power tables, computing them on first use.
    // Below 10^-308 the number becomes 0; above 10^308 it is scaled by
    // repeated factors of 10^308, so that nothing beyond the tables is read.
    void multiply_by_ten_to_the(int n);

    double value() const { return m_hi; }
    double hi() const { return m_hi; }
    double lo() const { return m_lo; }

protected:
    // Adds a d that is small against hi.
    void fast_add(double d);
    // multiply_by for products whose partial products cannot overflow.
    void multiply_in_range(const stoReadNumber& y);
    // Veltkamp's split of a into a high half of 26 significant bits and a
    // low half, hi + lo == a. Magnitudes near the top of the double range
    // are split at a smaller scale so that the splitting product cannot
    // overflow.
    static void split(double a, volatile double& hi, volatile double& lo);
    // Fills both power tables and sets the flag. multiply_by_ten_to_the runs
    // it once per process, other threads waiting for it; a direct call must
    // not overlap with readers of the tables.
    static void calculate_exponents();

private:
    double m_hi;
    double m_lo;

    static stoReadNumber s_up[kMaxPower + 1];    // 10^0 ... 10^308
    static stoReadNumber s_down[kMaxPower + 1];  // 10^0 ... 10^-308
    static std::atomic<bool> s_computed;
};

// Decodes the Base64 block at the cursor (lines of characters, carriage
// returns ignored, ended by an empty line or the end of the input) into
// `out` and leaves the cursor after the empty line. Bytes outside the
// alphabet decode as 0. Always answers 1; never reads at or beyond `end`.
int sto_read_ascii_stoByteArray(const char*& cursor, const char* end, stoByteArray& out);

// The lexical state of a reader and the operations on it. Derived readers
// parse records with the protected members; the input, which the caller
// keeps alive, is set with set_input.
class stoReadLexer {
public:
    // The diagnostic stream must outlive the lexer and should not be null
    // (when it is, reports are only counted). The encoder, used and not
    // owned, may be given later with set_encoder; without one, string
    // literals are decoded byte for byte.
    stoReadLexer(std::ostream* diagnostics, const stoEncoder* encoder);
    virtual ~stoReadLexer() = default;
    stoReadLexer(const stoReadLexer&) = delete;
    stoReadLexer& operator=(const stoReadLexer&) = delete;

    // The number of errors reported over the lexer's life.
    int error_count() const { return m_error_count; }

protected:
    // The bytes from start to start + length; puts the cursor at the start
    // and the line number at 1.
    void set_input(const char* start, int length);
    void set_encoder(const stoEncoder* encoder) { m_encoder = encoder; }
    const stoEncoder* encoder() const { return m_encoder; }
    std::ostream* diagnostics() const { return m_diagnostics; }

    const char* input_start() const { return m_start; }
    const char* input_end() const { return m_end; }
    int input_length() const { return static_cast<int>(m_end - m_start); }
    const char* cursor() const { return m_cursor; }
    // Moves the cursor, kept within the input.
    void set_cursor(const char* position);
    int at_end() const { return m_cursor >= m_end; }
    int line_number() const { return m_line; }
    void set_line_number(int line) { m_line = line; }

    // The byte at the cursor as a signed char value, or -1 at the end (so a
    // byte 0xFF looks like the end; files never hold one).
    int peekc() const { return m_cursor < m_end ? static_cast<int>(static_cast<signed char>(*m_cursor)) : -1; }
    // Consumes and answers the byte at the cursor (as peekc gives it); at the
    // end reports "Unexpected end of file" and answers -1.
    int absorb();
    // Consumes the next byte if it is c; otherwise reports what was found and
    // consumes nothing.
    void absorb(char c);
    // Consumes a line feed, or a carriage return and a line feed.
    void absorb_new_line();
    // Consumes the rest of the line and its line feed; answers the line
    // without the line feed. Lines may be of any length.
    utString skip_line();
    // The longest run of identifier bytes at the cursor (possibly empty).
    stoReadKey read_identifier();

    // Reads decimal digits; whole gets their value modulo 2^64 (as a signed
    // value), exact continues with them (exact × 10 + digit for each).
    // Answers the number of digits.
    int read_digit_sequence(long long& whole, stoReadNumber& exact);
    // An optionally signed integer: answers its value modulo 2^64 and leaves
    // its magnitude in exact (reset first).
    long long read_integer(stoReadNumber& exact);
    // The rest of a double literal whose integer digits are in exact: an
    // optional fraction and exponent. A scale beyond 10^308 or a value
    // beyond the double range is reported as out of range and gives 0; a
    // scale below 10^-308 gives 0.
    double read_double(int sign, stoReadNumber exact);
    // A number literal at a digit, sign or ".": answers 1 for an integer
    // (its 64-bit value in `integer`) and 0 for a double (its value in
    // `real`). Integer literals too large for 64 bits are doubles.
    int read_number(long long& integer, double& real);
    // A string literal through the encoder; the null string (after a report)
    // when the literal is malformed. Line feeds inside it are not counted.
    utString read_string();
    // The Base64 data of a byte-array literal, after its "!{" line.
    stoByteArray read_byte_array();

    // Reports "Error on line N: " and the formatted message (which carries
    // its own line end), counts it and sets the error flag. Never throws.
    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void verror(const char* format, va_list args) __attribute__((format(printf, 2, 0)));
    // The error flag, cleared.
    int e()
    {
        int flag = m_error_flag;
        m_error_flag = 0;
        return flag;
    }

private:
    // Adds the line feeds between from and the cursor to the line number.
    void count_lines_from(const char* from);

    const char* m_start = nullptr;
    const char* m_end = nullptr;
    const char* m_cursor = nullptr;
    int m_line = 1;
    std::ostream* m_diagnostics;
    int m_error_flag = 0;
    int m_error_count = 0;
    const stoEncoder* m_encoder;
};
