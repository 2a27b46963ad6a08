// Veltra, the platform layer for text and files: a Unicode string, the
// character encodings the system knows (UTF-8 and the Windows-1252 code page
// of multi-byte text), and a file-existence test. The string encoders use it
// to turn the bytes of files into the application's encoding.
//
//   int failed = 0;
//   const veIStringEncoding* cp = veStringEncodingChooser::mb_encoding();
//   veString text = cp->decode("caf\xE9", failed);   // failed == 0
//   utString utf8(text.convert(veStringUTF8));        // "caf\xC3\xA9"
//
// Every operation that takes an int failure flag assigns it: 0 when it
// succeeded, non-zero when it did not. A caller that passes one flag through
// several calls therefore sees the outcome of the last one.
#pragma once

#include "platform/ut_string.h"

#include <string>

enum veStringUTF8Tag { veStringUTF8 };
enum veStringUTF32Tag { veStringUTF32 };

// Unicode text. It only ever holds Unicode scalar values: whatever cannot be
// one (ill-formed UTF-8, surrogates, codes above U+10FFFF) is replaced by
// U+FFFD and reported through the failure flag, so that every encoding can
// rely on well-formed input.
class veString {
public:
    veString() = default;
    // Zero-terminated UTF-8 text; a null text is the empty string.
    veString(veStringUTF8Tag, const char* text, int& failure);
    // `count` 32-bit character codes.
    veString(veStringUTF32Tag, const char32_t* codes, int count, int& failure);
    veString(veStringUTF32Tag, const unsigned int* codes, int count, int& failure);

    // The zero-terminated UTF-8 form; valid until this string changes or
    // goes. A U+0000 in the text ends the zero-terminated form early.
    const char* convert(veStringUTF8Tag) const { return utf8().c_str(); }
    // The whole UTF-8 form, U+0000 included.
    const std::string& utf8() const;

    const std::u32string& codes() const { return m_codes; }
    int length() const { return static_cast<int>(m_codes.size()); }
    bool operator==(const veString& other) const { return m_codes == other.m_codes; }

private:
    std::u32string m_codes;
    // The UTF-8 form is made on demand and kept, since `convert` answers a
    // pointer that must stay valid.
    mutable std::string m_utf8;
    mutable bool m_utf8_ready = false;
};

// A character encoding of byte strings.
class veIStringEncoding {
public:
    // Decodes zero-terminated text of this encoding. Bytes that the encoding
    // does not define fail the decoding and come out as U+FFFD.
    virtual veString decode(const char* text, int& failure) const = 0;
    // Encodes the text in this encoding. Characters it cannot represent fail
    // the encoding and come out as "?".
    virtual utString encode(const veString& text, int& failure) const = 0;
    virtual const char* name() const = 0;
    virtual ~veIStringEncoding() = default;
};

class veUTF8Encoding : public veIStringEncoding {
public:
    veString decode(const char* text, int& failure) const override;
    // Never fails: a veString holds only what UTF-8 can represent.
    utString encode(const veString& text, int& failure) const override;
    const char* name() const override { return "UTF-8"; }
};

// Windows-1252: ISO 8859-1 with printable characters in 0x80-0x9F. The bytes
// 0x81, 0x8D, 0x8F, 0x90 and 0x9D are undefined and fail decoding.
class veWindows1252Encoding : public veIStringEncoding {
public:
    veString decode(const char* text, int& failure) const override;
    utString encode(const veString& text, int& failure) const override;
    const char* name() const override { return "Windows-1252"; }
};

// The system's encodings. The answers are process-wide objects that outlive
// every chooser.
class veStringEncodingChooser {
public:
    // The multi-byte code page of the system: Windows-1252.
    static const veIStringEncoding* mb_encoding();
    // The encoding of utString text: UTF-8.
    static const veIStringEncoding* ut_encoding();
};

class veFileFinder {
public:
    // Non-zero when something other than a directory exists at the path
    // (symbolic links followed); a null path answers 0. Never throws.
    static int check_file_exists(const char* path);
    static int check_file_exists(const utString& path) { return check_file_exists(path.c_str()); }
    static int check_file_exists(const std::string& path) { return check_file_exists(path.c_str()); }
};
