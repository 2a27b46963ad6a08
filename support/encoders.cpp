#include "support/encoders.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

namespace {

// Bytes are gathered in chunks of this size, each handed on as
// zero-terminated text: an escaped zero byte ends the text of its chunk. The
// store's strings hold no zero bytes, and everything downstream reads them
// as zero-terminated text, so a zero would only make length and text differ.
constexpr int kChunkSize = 80;

void append_chunk(std::string& to, const char* chunk, int used)
{
    to.append(chunk, std::find(chunk, chunk + used, '\0'));
}

int hex_digit_value(char c)
{
    // Only upper-case digits count; the writer never produces others.
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// Literal decoders.
// ---------------------------------------------------------------------------

int stoNullEncoder::encode_string(const char*& cursor, const char* end, utString& out) const
{
    if (!cursor || !end || cursor >= end)
        return 0;
    out = utString();
    const char* p = cursor;
    char first = *p++;
    cursor = p;
    if (first == '@')
        return 1;  // the null string
    if (first != '"')
        return 0;

    enum { plain, escaped, hex_first, hex_second };
    char chunk[kChunkSize];
    int used = 0;
    std::string full;  // whole chunks; most strings never need it
    int state = plain;
    unsigned int accumulator = 0;
    int success = 0;
    while (p < end) {
        char c = *p++;
        if (used == kChunkSize) {
            append_chunk(full, chunk, used);
            used = 0;
        }
        switch (state) {
        case escaped:
            if (c == 'x') {
                state = hex_first;
            } else {
                chunk[used++] = c;
                state = plain;
            }
            break;
        case hex_first:
        case hex_second:
            accumulator = ((accumulator << 4) | static_cast<unsigned int>(hex_digit_value(c))) & 0xFF;
            if (state == hex_second) {
                chunk[used++] = static_cast<char>(accumulator);
                accumulator = 0;
                state = plain;
            } else {
                state = hex_second;
            }
            break;
        default:
            if (c == '\\') {
                state = escaped;
            } else if (c == '"') {
                success = 1;
            } else {
                chunk[used++] = c;
            }
            break;
        }
        if (success)
            break;
    }
    cursor = p;
    if (full.empty()) {
        int n = static_cast<int>(std::find(chunk, chunk + used, '\0') - chunk);
        out = utString(utStringArray, chunk, n);
    } else {
        append_chunk(full, chunk, used);
        out = utString(std::string_view(full));
    }
    return success;
}

stoEncodeEitherToLocal::stoEncodeEitherToLocal(const stoIStringEncoder* encoder) : m_encoder(encoder)
{
    if (!m_encoder) {
        m_own_encoder = stoStringEncodingChooser(nullptr, nullptr, stoEncoderDefault).encoding(utPtrRelease);
        m_encoder = m_own_encoder.get();
        if (!m_encoder)
            throw std::bad_alloc();
    }
}

int stoEncodeEitherToLocal::encode_string(const char*& cursor, const char* end, utString& out) const
{
    if (!stoNullEncoder().encode_string(cursor, end, out))
        return 0;
    if (out.length() == 0)
        return 1;
    if (stoEncodingConverter().valid_utf8(out.c_str()))
        out = m_encoder->utf8_to_local(out);
    else
        out = m_encoder->non_utf8_to_local(out);
    return 1;
}

stoEncodeEitherToANSI::stoEncodeEitherToANSI(const veIStringEncoding* encoding)
    : stoEncodeEitherToANSI(utPtrClaim,
                            stoStringEncodingChooser(encoding, encoding, stoEncoderANSI).encoding(utPtrRelease))
{
}

stoEncodeEitherToANSI::stoEncodeEitherToANSI(utPtrClaimTag, stoIStringEncoder* made)
    : stoEncodeEitherToLocal(made), m_ansi_encoder(utPtrClaim, made)
{
}

// ---------------------------------------------------------------------------
// String encoders. One failure flag runs through the platform calls of a
// conversion and its value after the last call decides, so a decoding that
// failed but was replaced by the Latin-1 reading does not fail the encoding.
// ---------------------------------------------------------------------------

namespace {

veString decode_or_latin(const veIStringEncoding* source, const utString& s, int& failure)
{
    veString text = source->decode(s.c_str(), failure);
    if (failure)
        text = stoForceLatin().force_latin(s);
    return text;
}

utString encode_or_keep(const veIStringEncoding* local, const veString& text, const utString& s, int& failure)
{
    utString encoded = local->encode(text, failure);
    return failure ? s : encoded;
}

}  // namespace

utString stoOrmidStringEncoder::utf8_to_local(const utString& s) const
{
    return s;
}

utString stoOrmidStringEncoder::non_utf8_to_local(const utString& s) const
{
    int failure = 0;
    veString text = decode_or_latin(m_source, s, failure);
    return utString(text.convert(veStringUTF8));
}

int stoAnsiStringEncoder::is_ascii(const char* text) const
{
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text ? text : ""); *p; ++p)
        if (*p & 0x80)
            return 0;
    return 1;
}

utString stoAnsiStringEncoder::utf8_to_local(const utString& s) const
{
    // Every code page of the system agrees with ASCII.
    if (is_ascii(s.c_str()))
        return s;
    int failure = 0;
    veString text(veStringUTF8, s.c_str(), failure);
    return encode_or_keep(m_local, text, s, failure);
}

utString stoAnsiStringEncoder::non_utf8_to_local(const utString& s) const
{
    return s;
}

utString stoVeltraStringEncoder::utf8_to_local(const utString& s) const
{
    int failure = 0;
    veString text(veStringUTF8, s.c_str(), failure);
    return encode_or_keep(m_local, text, s, failure);
}

utString stoVeltraStringEncoder::non_utf8_to_local(const utString& s) const
{
    int failure = 0;
    veString text = decode_or_latin(m_source, s, failure);
    return encode_or_keep(m_local, text, s, failure);
}

// ---------------------------------------------------------------------------
// Factory.
// ---------------------------------------------------------------------------

stoStringEncodingChooser::stoStringEncodingChooser(const veIStringEncoding* local, const veIStringEncoding* source,
                                                   stoEncoderType type)
    : m_local(local), m_source(source), m_type(type == stoEncoderDefault ? stoEncoderUTF8 : type)
{
    if (!m_source)
        m_source = veStringEncodingChooser::mb_encoding();
    if (!m_local)
        m_local = m_type == stoEncoderANSI ? m_source : veStringEncodingChooser::ut_encoding();
}

stoIStringEncoder* stoStringEncodingChooser::encoding(utPtrReleaseTag) const
{
    switch (m_type) {
    case stoEncoderUTF8:
        return new (std::nothrow) stoOrmidStringEncoder(m_source);
    case stoEncoderANSI:
        return new (std::nothrow) stoAnsiStringEncoder(m_local);
    default:
        return new (std::nothrow) stoVeltraStringEncoder(m_local, m_source);
    }
}

// ---------------------------------------------------------------------------
// UTF-8.
// ---------------------------------------------------------------------------

unsigned char stoUTF8Helper::lead_mask_for_width(int w) const
{
    if (w <= 1)
        return 0;
    if (w >= 8)
        return 0xFF;
    return static_cast<unsigned char>(0xFFu << (8 - w));
}

unsigned long long stoUTF8Helper::n_codes(int w) const
{
    if (w <= 0)
        return 0;
    if (w == 1)
        return 0x80;
    return 1ull << (5 * std::min(w, 12) + 1);
}

int stoUTF8Helper::width_for_character(unsigned int code) const
{
    int w = 1;
    while (code >= n_codes(w))
        ++w;
    return w;
}

int stoUTF8Helper::width_from_lead_byte(unsigned char b) const
{
    int w = 0;
    while (w < 8 && (b & (0x80u >> w)))
        ++w;
    return w == 0 ? 1 : w;
}

char* stoUTF8Helper::encode_in_width(unsigned int code, char* out, int w) const
{
    if (w < 1)
        return out;
    // Shifts of 36 and 42 bits for widths 7 and 8 need 64 bits; the bytes of
    // a still wider, overlong form above the code's bits are zero.
    unsigned long long wide = code;
    auto bits = [wide](int shift) { return shift < 64 ? wide >> shift : 0ull; };
    *out++ = static_cast<char>(lead_mask_for_width(w) | static_cast<unsigned char>(bits(6 * (w - 1))));
    for (int i = w - 2; i >= 0; --i)
        *out++ = static_cast<char>(0x80 | (bits(6 * i) & 0x3F));
    return out;
}

int stoUTF8Helper::scan_sequence(const char*& cursor, const char* end, unsigned int& code) const
{
    if (!cursor || !end || cursor >= end)
        return 0;
    unsigned char b = static_cast<unsigned char>(*cursor++);
    code = b;
    if (is_tail_byte(b))
        return 0;
    int w = width_from_lead_byte(b);
    code = b & static_cast<unsigned char>(~lead_mask_for_width(w));
    // Seven and eight byte forms carry more than 32 bits; the code wraps, and
    // scan_character rejects them whatever it holds.
    for (int i = 1; i < w; ++i) {
        if (cursor == end)
            return 0;
        unsigned char t = static_cast<unsigned char>(*cursor++);
        code = (code << 6) | (t & 0x7F);
        if (!is_tail_byte(t))
            return 0;
    }
    return 1;
}

int stoUTF8Helper::scan_character(const char*& cursor, const char* end, unsigned int& code) const
{
    const char* start = cursor;
    if (!scan_sequence(cursor, end, code))
        return 0;
    if (cursor - start > width_for_character(code))
        return 0;  // overlong
    return code < 0x110000;
}

int stoEncodingConverter::valid_utf8(const char* text) const
{
    if (!text)
        return 1;
    const char* end = text + std::strlen(text);
    stoUTF8Helper helper;
    unsigned int code = 0;
    while (text < end)
        if (!helper.scan_character(text, end, code))
            return 0;
    return 1;
}

veString stoForceLatin::force_latin(const utString& s) const
{
    std::u32string codes(static_cast<std::size_t>(s.length()), U'\0');
    const char* bytes = s.data();
    for (int i = 0; i < s.length(); ++i)
        codes[static_cast<std::size_t>(i)] = static_cast<unsigned char>(bytes[i]);
    int ignored = 0;
    return veString(veStringUTF32, codes.data(), static_cast<int>(codes.size()), ignored);
}
