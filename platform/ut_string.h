// utString: the reference-counted byte string of the utility layer.
//
// Copies share one buffer; a change makes the string's own copy first. The
// null string (no buffer) is distinct from the empty string, and files keep
// the difference, so every operation says what it does with null.
//
//   utString name("m_size");
//   utString full = name + "@" + 3;   // "m_size@3"
//   utString none;                    // null: none.is_null() == 1
#pragma once

#include "platform/co_hash.h"
#include "platform/ut_tags.h"

#include <iosfwd>
#include <string>
#include <string_view>

enum utStringLitTag { utStringLit };
enum utStringArrayTag { utStringArray };

class utString {
public:
    // The null string.
    utString() : m_rep(nullptr) {}
    // A copy of a zero-terminated text; a null text gives the null string.
    utString(char const* text);
    utString(utStringLitTag, char const* text) : utString(text) {}
    utString(utCopyTag, char const* text) : utString(text) {}
    // `length` bytes at `data`, which may contain zero bytes.
    utString(utStringArrayTag, char const* data, int length);
    explicit utString(std::string_view text);

    utString(utString const& other) : m_rep(other.m_rep) { if (m_rep) ++m_rep->refs; }
    utString(utString&& other) noexcept : m_rep(other.m_rep) { other.m_rep = nullptr; }
    utString& operator=(utString const& other);
    utString& operator=(utString&& other) noexcept;
    ~utString() { release(); }

    int is_null() const { return m_rep == nullptr; }
    int length() const { return m_rep ? m_rep->length : 0; }
    // Zero-terminated text; "" for the null string.
    char const* c_str() const { return m_rep ? m_rep->data : ""; }
    char const* data() const { return c_str(); }
    std::string_view view() const { return m_rep ? std::string_view(m_rep->data, m_rep->length) : std::string_view(); }
    std::string str() const { return std::string(view()); }
    char operator[](int i) const { return m_rep->data[i]; }

    // Appending to the null string makes it a real string.
    utString& operator+=(utString const& s) { return append(s.view()); }
    utString& operator+=(char const* s) { return append(s ? std::string_view(s) : std::string_view()); }
    utString& operator+=(int v);
    utString& operator<<(utString const& s) { return *this += s; }
    utString& operator<<(char const* s) { return *this += s; }
    utString& operator<<(int v) { return *this += v; }
    utString& append(std::string_view bytes);

    // Null equals only null; otherwise byte-wise comparison.
    int operator==(utString const& other) const;
    int operator!=(utString const& other) const { return !(*this == other); }
    int operator==(char const* text) const;
    int operator!=(char const* text) const { return !(*this == text); }
    bool operator<(utString const& other) const { return view() < other.view(); }

    // Number of strings sharing this buffer (0 for null); for tests.
    int share_count() const { return m_rep ? m_rep->refs : 0; }

private:
    struct Rep {
        int refs;
        int length;
        char data[1];
    };
    static Rep* allocate(int length);
    void release();

    Rep* m_rep;
};

utString operator+(utString const& a, utString const& b);
utString operator+(utString const& a, char const* b);
utString operator+(char const* a, utString const& b);
utString operator+(utString const& a, int b);

inline utString ut_lit(char const* text) { return utString(utStringLit, text); }

std::ostream& operator<<(std::ostream& os, utString const& s);

// The null string hashes to 0; any other to the byte hash of its bytes.
inline unsigned int co_hash(utString const& s)
{
    return s.is_null() ? 0u : co_hash(s.c_str(), s.length());
}
