// String encoders: decode the escapes of a string literal of a store file
// into bytes, and convert those bytes to the application's local encoding.
//
// Files keep strings in whatever encoding the writing program used, so the
// reader decides per string: valid UTF-8 goes one way, anything else is taken
// as text of the system's code page (or ISO 8859-1 when that fails).
//
//   stoEncodeEitherToLocal encoder;               // code page -> UTF-8
//   const char* cursor = text;
//   utString s;
//   int ok = encoder.encode_string(cursor, text_end, s);
#pragma once

#include "platform/co_pointers.h"
#include "platform/ut_string.h"
#include "platform/ut_tags.h"
#include "platform/ve_string.h"

// Decodes one string literal at the cursor into `out` and advances the
// cursor past it; answers 1 on success, 0 on failure.
class stoEncoder {
public:
    virtual int encode_string(const char*& cursor, const char* end, utString& out) const = 0;
    virtual ~stoEncoder() = default;
};

// The literal's bytes as they are, escapes decoded.
class stoNullEncoder : public stoEncoder {
public:
    int encode_string(const char*& cursor, const char* end, utString& out) const override;
};

// Converts the bytes of a decoded literal to the local encoding. Answers new
// strings and leaves its argument alone.
class stoIStringEncoder {
public:
    virtual utString utf8_to_local(const utString& s) const = 0;
    virtual utString non_utf8_to_local(const utString& s) const = 0;
    virtual ~stoIStringEncoder() = default;
};

typedef coPrg<stoIStringEncoder> stoIStringEncodercoPrg;

// Decodes a literal with stoNullEncoder, then converts the bytes through a
// string encoder chosen by whether they are valid UTF-8. Empty and null
// strings pass unchanged.
class stoEncodeEitherToLocal : public stoEncoder {
public:
    // A given encoder is used, not owned. Without one, the object makes and
    // owns the default: code-page text to UTF-8, valid UTF-8 unchanged.
    explicit stoEncodeEitherToLocal(const stoIStringEncoder* encoder = nullptr);
    stoEncodeEitherToLocal(const stoEncodeEitherToLocal&) = delete;
    stoEncodeEitherToLocal& operator=(const stoEncodeEitherToLocal&) = delete;

    int encode_string(const char*& cursor, const char* end, utString& out) const override;
    const stoIStringEncoder* string_encoder() const { return m_encoder; }

protected:
    stoIStringEncodercoPrg m_own_encoder;   // empty unless made here
    const stoIStringEncoder* m_encoder;     // never null
};

// Converts UTF-8 strings of a file to the code page `encoding` (the system's
// when null) and leaves other strings, taken to be in it already, alone.
class stoEncodeEitherToANSI : public stoEncodeEitherToLocal {
public:
    explicit stoEncodeEitherToANSI(const veIStringEncoding* encoding);

private:
    // The encoder made for the base, which this object owns.
    stoEncodeEitherToANSI(utPtrClaimTag, stoIStringEncoder* made);
    stoIStringEncodercoPrg m_ansi_encoder;
};

// UTF-8 stays; other text is decoded from `source` (ISO 8859-1 when that
// fails) and answered as UTF-8.
class stoOrmidStringEncoder : public stoIStringEncoder {
public:
    explicit stoOrmidStringEncoder(const veIStringEncoding* source) : m_source(source) {}
    utString utf8_to_local(const utString& s) const override;
    utString non_utf8_to_local(const utString& s) const override;
    const veIStringEncoding* source() const { return m_source; }

private:
    const veIStringEncoding* m_source;
};

// UTF-8 is encoded in `local`; other text is taken to be in `local` already.
// Text that `local` cannot represent stays as it was.
class stoAnsiStringEncoder : public stoIStringEncoder {
public:
    explicit stoAnsiStringEncoder(const veIStringEncoding* local) : m_local(local) {}
    utString utf8_to_local(const utString& s) const override;
    utString non_utf8_to_local(const utString& s) const override;
    const veIStringEncoding* local() const { return m_local; }

protected:
    // 1 when no byte before the terminating zero has its top bit set.
    int is_ascii(const char* text) const;

private:
    const veIStringEncoding* m_local;
};

// UTF-8 is encoded in `local`; other text is decoded from `source` (ISO
// 8859-1 when that fails) and encoded in `local`. Text that `local` cannot
// represent stays as it was.
class stoVeltraStringEncoder : public stoIStringEncoder {
public:
    stoVeltraStringEncoder(const veIStringEncoding* local, const veIStringEncoding* source)
        : m_local(local), m_source(source) {}
    utString utf8_to_local(const utString& s) const override;
    utString non_utf8_to_local(const utString& s) const override;
    const veIStringEncoding* local() const { return m_local; }
    const veIStringEncoding* source() const { return m_source; }

private:
    const veIStringEncoding* m_local;
    const veIStringEncoding* m_source;
};

// Every int is a value of the type, so that any may be passed and mean 3.
enum stoEncoderType : int {
    stoEncoderDefault = 0,  // means stoEncoderUTF8
    stoEncoderUTF8 = 1,     // stoOrmidStringEncoder
    stoEncoderANSI = 2,     // stoAnsiStringEncoder
    stoEncoderConvert = 3,  // stoVeltraStringEncoder, as is every other value
};

// Makes string encoders from the platform's encodings. A null source is the
// system's code page; a null local is the source for stoEncoderANSI and
// UTF-8 otherwise.
class stoStringEncodingChooser {
public:
    stoStringEncodingChooser(const veIStringEncoding* local, const veIStringEncoding* source,
                             stoEncoderType type);
    // A new encoder that the caller owns, or null when none could be made.
    stoIStringEncoder* encoding(utPtrReleaseTag) const;

    const veIStringEncoding* local() const { return m_local; }
    const veIStringEncoding* source() const { return m_source; }
    stoEncoderType type() const { return m_type; }

private:
    const veIStringEncoding* m_local;
    const veIStringEncoding* m_source;
    stoEncoderType m_type;
};

// UTF-8 in the original form of up to eight bytes per character (six carry
// codes below 0x80000000); judging a character is scan_character's job.
class stoUTF8Helper {
public:
    stoUTF8Helper() {}
    int tail_mask() const { return 0x80; }
    int is_tail_byte(unsigned char b) const { return (b & 0xC0) == 0x80; }
    int is_lead_byte(unsigned char b) const { return !is_tail_byte(b); }
    // The bits of a lead byte that mark its width: 0xC0 for 2 ... 0xFC for 6.
    unsigned char lead_mask_for_width(int w) const;
    // How many codes, from 0, a width can hold: 0x80 for 1 ... 0x80000000 for 6.
    unsigned long long n_codes(int w) const;
    unsigned long long first_code(int w) const { return w <= 1 ? 0 : n_codes(w - 1); }
    // The shortest width for the code (7 from 0x80000000 up).
    int width_for_character(unsigned int code) const;
    // The leading one bits of the byte, or 1 when there are none.
    int width_from_lead_byte(unsigned char b) const;
    // Writes the code in w bytes, overlong if w is more than needed; answers
    // the position after them.
    char* encode_in_width(unsigned int code, char* out, int w) const;
    char* encode(unsigned int code, char* out) const { return encode_in_width(code, out, width_for_character(code)); }
    // Reads one character's bytes without judging its width; 0 when there is
    // nothing, the first byte is a tail byte, or the sequence is cut short.
    // The cursor never passes `end`.
    int scan_sequence(const char*& cursor, const char* end, unsigned int& code) const;
    // As scan_sequence, but also rejects overlong forms and codes from
    // 0x110000 up. Surrogates pass.
    int scan_character(const char*& cursor, const char* end, unsigned int& code) const;
};

class stoEncodingConverter {
public:
    stoEncodingConverter() {}
    // 1 when the zero-terminated text (null counts as empty) consists of
    // characters that stoUTF8Helper::scan_character accepts.
    int valid_utf8(const char* text) const;
};

class stoForceLatin {
public:
    stoForceLatin() {}
    // All bytes of s read as ISO 8859-1, which never fails.
    veString force_latin(const utString& s) const;
};
