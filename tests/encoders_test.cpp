// String encoders: the decoding of string literals (escapes, chunks, truncated input, which must never be
// read past its end), the UTF-8 encoder and validity test, the Latin-1 fallback, the three string encoders
// over the platform's encodings and over fakes that count their calls, and the factory's choices.
#include "support/encoders.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>

namespace {

// The outcome of decoding one literal held in a heap block of exactly its size, so that the sanitizers
// catch any read at or past the end.
struct Decoded {
    int ok;
    utString out;
    std::ptrdiff_t consumed;
};

Decoded decode_with(const stoEncoder& encoder, std::string_view input)
{
    std::unique_ptr<char[]> block(new char[input.size() ? input.size() : 1]);
    std::copy(input.begin(), input.end(), block.get());
    const char *cursor = block.get(), *end = block.get() + input.size();
    Decoded d{0, utString("unchanged"), 0};
    d.ok = encoder.encode_string(cursor, end, d.out);
    d.consumed = cursor - block.get();
    EXPECT_GE(d.consumed, 0);
    EXPECT_LE(cursor, end);
    return d;
}

Decoded decode(std::string_view input) { return decode_with(stoNullEncoder(), input); }

// How a writer escapes bytes in a literal: printable ASCII as itself except quote and backslash,
// everything else as \x and two upper-case digits.
std::string escape(std::string_view bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out = "\"";
    for (char ch : bytes) {
        unsigned char b = static_cast<unsigned char>(ch);
        if (b == '"' || b == '\\')
            out += {'\\', ch};
        else if (b >= 0x20 && b <= 0x7E)
            out += ch;
        else
            out += {'\\', 'x', digits[b >> 4], digits[b & 15]};
    }
    return out + "\"";
}

std::string hex(std::string_view bytes)
{
    std::string out;
    for (unsigned char b : bytes)
        out += {"0123456789ABCDEF"[b >> 4], "0123456789ABCDEF"[b & 15]};
    return out;
}
std::string hex(const utString& s) { return hex(s.view()); }
std::string hex(const char* s) { return hex(std::string_view(s)); }

// A code page that records its calls and can be told to fail.
struct CountingEncoding : veIStringEncoding {
    mutable int decodes = 0, encodes = 0;
    bool fail_decode = false, fail_encode = false;

    veString decode(const char* text, int& failure) const override
    {
        ++decodes;
        veString s = veStringEncodingChooser::mb_encoding()->decode(text, failure);
        failure |= fail_decode;
        return s;
    }
    utString encode(const veString& text, int& failure) const override
    {
        ++encodes;
        utString s = veStringEncodingChooser::mb_encoding()->encode(text, failure);
        failure |= fail_encode;
        return s;
    }
    const char* name() const override { return "counting"; }
};

// A string encoder that tags what it was asked to do.
struct TaggingStringEncoder : stoIStringEncoder {
    mutable int utf8_calls = 0, others = 0;
    utString utf8_to_local(const utString& s) const override { return ++utf8_calls, utString("utf8:") + s; }
    utString non_utf8_to_local(const utString& s) const override { return ++others, utString("other:") + s; }
};

struct AnsiProbe : stoAnsiStringEncoder {
    using stoAnsiStringEncoder::is_ascii;
    using stoAnsiStringEncoder::stoAnsiStringEncoder;
};

}  // namespace

// --- stoNullEncoder: literals ---

TEST(EncodersLiteral, DecodesToTheBytesOrAnswersZero)
{
    constexpr const char* kNull = nullptr;  // the null string
    struct Case {
        std::string_view literal;
        int ok;
        const char* bytes;        // on success
        std::ptrdiff_t consumed;  // -1: the whole literal
    } cases[] = {
        {"@,rest", 1, kNull, 1}, {"@", 1, kNull, 1}, {"\"\"", 1, "", 2},
        {"\"abc def\",\"next\"", 1, "abc def", 9}, {R"("\x41\"\\")", 1, "A\"\\", -1},
        {R"("\x4a")", 1, "\x40", -1}, {R"("\xG1")", 1, "\x01", -1},  // other digits count as 0
        {R"("\n")", 1, "n", -1},  // no C escapes: just the letter
        {R"("\\x41")", 1, "\\x41", -1},  // an escaped backslash starts nothing
        // After \x the next two characters are digits whatever they are, so a quote there does not end the
        // literal; the byte is 0, which ends its chunk's text.
        {R"("\x"")" "\"", 1, "", 6}, {R"("ab\x00cd")", 1, "ab", -1},
        {"", 0, nullptr, 0}, {" \"abc\"", 0, nullptr, -1},  // no opening quote
        {"\"abc\\\"", 0, nullptr, -1},                  // the only quote is escaped
        {"\"\\x4\"", 0, nullptr, -1},                   // the quote is taken as the second digit
        {"\"abc\\x41", 0, "abcA", 8},  // what was read is left in the result, and the cursor at the end
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.literal);
        Decoded d = decode(c.literal);
        EXPECT_EQ(d.ok, c.ok);
        if (c.ok || c.bytes) {
            EXPECT_EQ(d.out.is_null(), c.bytes == nullptr);
            EXPECT_EQ(d.out.str(), c.bytes ? c.bytes : "");
        }
        if (c.ok || c.consumed >= 0) {
            EXPECT_EQ(d.consumed, c.consumed >= 0 ? c.consumed : std::ptrdiff_t(c.literal.size()));
        }
    }

    // Every proper prefix of a literal lacks its closing quote: a lone quote, a trailing backslash, \x
    // with none or one digit.
    const std::string literal = R"("a\x41\"\\\qz")";
    for (std::size_t n = 0; n < literal.size(); ++n) {
        Decoded d = decode(std::string_view(literal).substr(0, n));
        EXPECT_EQ(d.ok, 0) << n;
        EXPECT_EQ(d.consumed, static_cast<std::ptrdiff_t>(n)) << n;
    }
    EXPECT_EQ(decode(literal).ok, 1);

    // Nothing to read: the cursor at or past the end, or either pointer null.
    utString out("kept");
    const char text[] = "\"abc\"";
    for (auto [cursor, end] : {std::pair<const char*, const char*>{text, text}, {text + 3, text},
                               {nullptr, text + 5}, {text, nullptr}}) {
        const char* before = cursor;
        EXPECT_EQ(stoNullEncoder().encode_string(cursor, end, out), 0);
        EXPECT_EQ(cursor, before);
    }
}

TEST(EncodersLiteral, WriterEscapedBytesRoundTrip)
{
    std::mt19937 random(20240611);
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(random() % 300, '\0');
        for (char& b : bytes)
            b = static_cast<char>(1 + random() % 255);  // no zero bytes in stored strings
        std::string literal = escape(bytes) + "tail";
        Decoded d = decode(literal);
        ASSERT_EQ(d.ok, 1) << literal;
        ASSERT_EQ(d.out.str(), bytes) << literal;
        ASSERT_EQ(d.consumed, static_cast<std::ptrdiff_t>(literal.size() - 4));
    }
    // 200 bytes with an escaped zero at 10: the first chunk of 80 keeps 10, the other two their 80 and 40.
    Decoded d = decode("\"" + std::string(10, 'z') + "\\x00" + std::string(189, 'z') + "\"");
    EXPECT_EQ(d.ok, 1);
    EXPECT_EQ(d.out.length(), 10 + 80 + 40);
}

TEST(EncodersEither, ConvertByUtf8ValidityWithTheDefaultOrAGivenEncoder)
{
    stoEncodeEitherToLocal local;
    stoEncodeEitherToANSI ansi(nullptr);
    struct Case {
        const stoEncoder& encoder;
        const char* literal;
        const char* hex;  // null: the null string; "-": fails
    } cases[] = {
        {local, R"("caf\xE9\x80")", "636166C3A9E282AC"},  // Windows-1252 e-acute and euro sign
        {local, R"("caf\xC3\xA9")", "636166C3A9"},        // already UTF-8
        {local, R"("\x80\x81")", "C280C281"},  // one byte the code page leaves undefined: all Latin-1
        {local, R"("\xED\xA0\x80")", "EDA080"},  // passes the UTF-8 test
        {local, R"("\xC0\x80")", "C380E282AC"},  // overlong: code page text
        {local, "\"\"", ""}, {local, "@", nullptr}, {local, "\"abc", "-"},
        {ansi, R"("caf\xC3\xA9\xE2\x82\xAC")", "636166E980"},  // UTF-8 to Windows-1252
        {ansi, R"("caf\xE9")", "636166E9"},                   // already code page
        {ansi, R"("\xE4\xB8\xAD")", "E4B8AD"},                // not representable: unchanged
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.literal);
        Decoded d = decode_with(c.encoder, c.literal);
        bool fails = c.hex && std::strcmp(c.hex, "-") == 0;
        EXPECT_EQ(d.ok, fails ? 0 : 1);
        if (!fails) {
            EXPECT_EQ(d.out.is_null(), c.hex == nullptr);
            EXPECT_EQ(hex(d.out), c.hex ? c.hex : "");
        }
    }

    // A given encoder is used, and not owned.
    TaggingStringEncoder tagging;
    {
        stoEncodeEitherToLocal either(&tagging);
        EXPECT_EQ(decode_with(either, R"("\xC3\xA9")").out.str(), "utf8:\xC3\xA9");
        EXPECT_EQ(decode_with(either, R"("\xE9")").out.str(), "other:\xE9");
        // Empty and null strings are not converted at all.
        EXPECT_EQ(decode_with(either, "\"\"").out.length(), 0);
        EXPECT_TRUE(decode_with(either, "@").out.is_null());
    }
    EXPECT_EQ(tagging.utf8_calls, 1);
    EXPECT_EQ(tagging.others, 1);
}

TEST(EncodersStrings, EachEncoderConvertsOrKeepsTheBytes)
{
    const veIStringEncoding* mb = veStringEncodingChooser::mb_encoding();
    const veIStringEncoding* ut = veStringEncodingChooser::ut_encoding();
    CountingEncoding counting, failing_ansi, failing_source, failing_ormid_source, failing_local;
    failing_ansi.fail_encode = failing_local.fail_encode = true;
    failing_source.fail_decode = failing_ormid_source.fail_decode = true;
    stoOrmidStringEncoder ormid_failing(&failing_ormid_source);
    AnsiProbe ansi(&counting), ansi_failing(&failing_ansi);
    stoVeltraStringEncoder to_code_page(mb, mb), to_utf8(ut, mb), veltra(ut, &failing_source),
        keeps(&failing_local, mb);
    struct Case {
        const stoIStringEncoder& encoder;
        bool utf8;
        const char *input, *hex;
    } cases[] = {
        {ansi, true, "\xC5\xB8", "9F"}, {ansi_failing, true, "\xC5\xB8", "C5B8"},  // failure: unchanged
        {to_code_page, true, "\xC3\xA9", "E9"}, {to_code_page, true, "\xE4\xB8\xAD", "E4B8AD"},
        {to_code_page, false, "\xE9\x80", "E980"}, {ansi, true, "a~", "617E"},  // ASCII: no platform call
        // 0x81 reads as U+0081 in Latin-1, which the code page cannot encode.
        {to_code_page, false, "\x81", "81"},
        {to_utf8, false, "\xE9\x80", "C3A9E282AC"}, {to_utf8, true, "\xE2\x82\xAC", "E282AC"},
        // The last platform call decides: a failed decoding is replaced by the Latin-1 reading, and the
        // encoding that follows succeeds.
        {veltra, false, "\x80", "C280"}, {ormid_failing, false, "\x80", "C280"},
        {keeps, false, "\xE9", "E9"}, {keeps, true, "\xC3\xA9", "C3A9"},
    };
    for (const Case& c : cases) {
        utString in(c.input);
        EXPECT_EQ(hex(c.utf8 ? c.encoder.utf8_to_local(in) : c.encoder.non_utf8_to_local(in)), c.hex)
            << hex(c.input);
        EXPECT_EQ(hex(in), hex(c.input));  // the argument never changes
    }
    EXPECT_EQ(failing_source.decodes, 1);
    EXPECT_EQ(failing_local.encodes, 2);
    EXPECT_EQ(counting.encodes, 1);
    for (auto [text, is_ascii] :
         {std::pair<const char*, int>{"", 1}, {nullptr, 1}, {"\x7F", 1}, {"abc\x80", 0}})
        EXPECT_EQ(ansi.is_ascii(text), is_ascii) << (text ? hex(text) : "null");
}

TEST(EncodersChooser, MissingEncodingsAreFilledInAndTheTypeSelectsTheEncoder)
{
    // The defaults of the either-encoders show through their conversions; here the other choices, each as
    // "encoder local source" of what is made.
    const veIStringEncoding* mb = veStringEncodingChooser::mb_encoding();
    const veIStringEncoding* ut = veStringEncodingChooser::ut_encoding();
    CountingEncoding l, s;
    auto name = [&](const veIStringEncoding* x) {
        return std::string(x == mb ? " mb" : x == ut ? " ut" : x == &l ? " L" : x == &s ? " S" : " ?");
    };
    auto made = [&](const veIStringEncoding* local, const veIStringEncoding* source, int type) {
        stoStringEncodingChooser chooser(local, source, static_cast<stoEncoderType>(type));
        stoIStringEncodercoPrg e(chooser.encoding(utPtrRelease));
        if (auto* o = dynamic_cast<const stoOrmidStringEncoder*>(e.get()))
            return "ormid -" + name(o->source());
        if (auto* a = dynamic_cast<const stoAnsiStringEncoder*>(e.get()))
            return "ansi" + name(a->local()) + " -";
        auto* v = dynamic_cast<const stoVeltraStringEncoder*>(e.get());
        return v ? "veltra" + name(v->local()) + name(v->source()) : std::string("?");
    };
    EXPECT_EQ(made(&l, &s, stoEncoderUTF8), "ormid - S");
    EXPECT_EQ(made(nullptr, &s, stoEncoderANSI), "ansi S -");
    EXPECT_EQ(made(&l, nullptr, stoEncoderANSI), "ansi L -");
    EXPECT_EQ(made(nullptr, &s, stoEncoderConvert), "veltra ut S");
    EXPECT_EQ(made(&l, nullptr, 4), "veltra L mb");  // every other value means stoEncoderConvert
    EXPECT_EQ(made(&l, &s, -1), "veltra L S");
}

// --- stoUTF8Helper, stoEncodingConverter, stoForceLatin ---

TEST(EncodersUtf8, EncodeScanAndValidity)
{
    const std::pair<unsigned, const char*> rows[] = {
        {0x7F, "7F"},         {0x80, "C280"},         {0x7FF, "DFBF"},          {0x800, "E0A080"},
        {0xFFFF, "EFBFBF"},   {0x10000, "F0908080"},  {0x10FFFF, "F48FBFBF"},  {0x200000, "F888808080"},
        {0x7FFFFFFF, "FDBFBFBFBFBF"}, {0x80000000, "FE828080808080"},
    };
    stoUTF8Helper h;
    char buf[8] = {};
    auto encoded = [&](char* end) { return hex(std::string_view(buf, static_cast<std::size_t>(end - buf))); };
    for (auto [code, expected] : rows)
        EXPECT_EQ(encoded(h.encode(code, buf)), expected) << std::hex << code;
    EXPECT_EQ(encoded(h.encode_in_width(0x41, buf, 2)), "C181");  // an overlong form on request

    for (unsigned int code = 0; code < 0x110000; code += (code < 0x1000 ? 1 : 97)) {
        char* after = h.encode(code, buf);
        const char* cursor = buf;
        unsigned int back = 0xDEAD;
        ASSERT_EQ(h.scan_character(cursor, after, back), 1) << code;
        ASSERT_EQ(back, code);
        ASSERT_EQ(cursor, after);
    }

    // Valid UTF-8 is well-formed text, surrogates allowed.
    stoEncodingConverter converter;
    for (const char* t : {"", "\xC3\xA9t\xE2\x82\xAC", "\xED\xA0\x80", "\xF4\x8F\xBF\xBF",
                          static_cast<const char*>(nullptr)})
        EXPECT_EQ(converter.valid_utf8(t), 1) << (t ? hex(t) : "null");

    const char* rejected[] = {
        "a\xBF", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",  // lone tail byte, overlong
        "\xE2\x82", "\xE2\x82z", "\xF4\x90\x80\x80",              // cut short, 0x110000
        "\xF8\x88\x80\x80\x80", "\xFE\x82\x80\x80\x80\x80\x80", "\xFF",   // five, seven, eight bytes
        "\xE9t\xC3\xA9",                                            // code page text
    };
    for (const char* t : rejected)
        EXPECT_EQ(converter.valid_utf8(t), 0) << hex(t);
}

TEST(EncodersUtf8, ForceLatinMapsEveryByteToTheSameCode)
{
    std::string all;
    std::u32string codes;
    for (int b = 0; b < 256; ++b)
        all += static_cast<char>(b), codes += static_cast<char32_t>(b);
    EXPECT_EQ(stoForceLatin().force_latin(utString(utStringArray, all.data(), 256)).codes(), codes);
    EXPECT_EQ(stoForceLatin().force_latin(utString()).length(), 0);
}
