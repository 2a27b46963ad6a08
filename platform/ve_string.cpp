#include "platform/ve_string.h"

#include <filesystem>
#include <system_error>

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool is_scalar_value(char32_t code)
{
    return code < 0x110000 && (code < 0xD800 || code > 0xDFFF);
}

// Reads one character of zero-terminated UTF-8 at p. An ill-formed sequence
// gives U+FFFD for its longest well-formed start (at least one byte), the
// usual practice, so that one bad byte costs one character. The terminating
// zero is never a valid continuation, so p never passes it.
char32_t decode_utf8(const unsigned char*& p, bool& bad)
{
    unsigned int b = *p++;
    if (b < 0x80)
        return b;
    int more;
    char32_t code;
    // The second byte's range excludes overlong forms (E0, F0), surrogates
    // (ED) and codes above U+10FFFF (F4).
    unsigned int lo = 0x80;
    unsigned int hi = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) {
        more = 1;
        code = b & 0x1F;
    } else if (b >= 0xE0 && b <= 0xEF) {
        more = 2;
        code = b & 0x0F;
        if (b == 0xE0)
            lo = 0xA0;
        if (b == 0xED)
            hi = 0x9F;
    } else if (b >= 0xF0 && b <= 0xF4) {
        more = 3;
        code = b & 0x07;
        if (b == 0xF0)
            lo = 0x90;
        if (b == 0xF4)
            hi = 0x8F;
    } else {
        bad = true;
        return kReplacement;
    }
    for (int i = 0; i < more; ++i) {
        unsigned int t = *p;
        if (t < lo || t > hi) {
            bad = true;
            return kReplacement;
        }
        ++p;
        code = (code << 6) | (t & 0x3F);
        lo = 0x80;
        hi = 0xBF;
    }
    return code;
}

void append_utf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

template <class Code>
std::u32string checked_codes(const Code* codes, int count, int& failure)
{
    failure = 0;
    std::u32string out;
    if (!codes || count <= 0)
        return out;
    out.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        char32_t c = static_cast<char32_t>(codes[i]);
        if (!is_scalar_value(c)) {
            failure = 1;
            c = kReplacement;
        }
        out += c;
    }
    return out;
}

// Windows-1252 in 0x80-0x9F; 0 marks the five undefined bytes. Everywhere
// else a byte is the code point of the same value.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
    0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178,
};

// The byte of a code in Windows-1252, or -1.
int cp1252_byte(char32_t c)
{
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF))
        return static_cast<int>(c);
    for (int i = 0; i < 32; ++i)
        if (kCp1252High[i] != 0 && kCp1252High[i] == c)
            return 0x80 + i;
    return -1;
}

}  // namespace

veString::veString(veStringUTF8Tag, const char* text, int& failure)
{
    failure = 0;
    if (!text)
        return;
    bool bad = false;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    while (*p)
        m_codes += decode_utf8(p, bad);
    failure = bad ? 1 : 0;
}

veString::veString(veStringUTF32Tag, const char32_t* codes, int count, int& failure)
    : m_codes(checked_codes(codes, count, failure))
{
}

veString::veString(veStringUTF32Tag, const unsigned int* codes, int count, int& failure)
    : m_codes(checked_codes(codes, count, failure))
{
}

const std::string& veString::utf8() const
{
    if (!m_utf8_ready) {
        m_utf8.clear();
        m_utf8.reserve(m_codes.size());
        for (char32_t c : m_codes)
            append_utf8(m_utf8, c);
        m_utf8_ready = true;
    }
    return m_utf8;
}

veString veUTF8Encoding::decode(const char* text, int& failure) const
{
    return veString(veStringUTF8, text, failure);
}

utString veUTF8Encoding::encode(const veString& text, int& failure) const
{
    failure = 0;
    return utString(std::string_view(text.utf8()));
}

veString veWindows1252Encoding::decode(const char* text, int& failure) const
{
    std::u32string codes;
    bool bad = false;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text ? text : ""); *p; ++p) {
        char32_t c = *p;
        if (c >= 0x80 && c <= 0x9F) {
            c = kCp1252High[c - 0x80];
            if (c == 0) {
                bad = true;
                c = kReplacement;
            }
        }
        codes += c;
    }
    // Every code above is a scalar value, so the construction cannot fail.
    veString out(veStringUTF32, codes.data(), static_cast<int>(codes.size()), failure);
    failure = bad ? 1 : 0;
    return out;
}

utString veWindows1252Encoding::encode(const veString& text, int& failure) const
{
    std::string bytes;
    bytes.reserve(text.codes().size());
    bool bad = false;
    for (char32_t c : text.codes()) {
        int b = cp1252_byte(c);
        if (b < 0) {
            bad = true;
            b = '?';
        }
        bytes += static_cast<char>(b);
    }
    failure = bad ? 1 : 0;
    return utString(std::string_view(bytes));
}

const veIStringEncoding* veStringEncodingChooser::mb_encoding()
{
    static const veWindows1252Encoding encoding;
    return &encoding;
}

const veIStringEncoding* veStringEncodingChooser::ut_encoding()
{
    static const veUTF8Encoding encoding;
    return &encoding;
}

int veFileFinder::check_file_exists(const char* path)
{
    if (!path || !*path)
        return 0;
    std::error_code ec;
    std::filesystem::file_status status = std::filesystem::status(path, ec);
    if (ec)
        return 0;
    return std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}
