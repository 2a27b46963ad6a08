#include "platform/ut_string.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <ostream>
#include <stdexcept>

utString::Rep* utString::allocate(int length)
{
    Rep* rep = static_cast<Rep*>(::operator new(sizeof(Rep) + static_cast<std::size_t>(length)));
    rep->refs = 1;
    rep->length = length;
    rep->data[length] = '\0';
    return rep;
}

void utString::release()
{
    if (m_rep && --m_rep->refs == 0)
        ::operator delete(m_rep);
    m_rep = nullptr;
}

utString::utString(char const* text) : m_rep(nullptr)
{
    if (text)
        append(std::string_view(text));
}

utString::utString(utStringArrayTag, char const* data, int length) : m_rep(nullptr)
{
    if (length < 0)
        throw std::length_error("utString: negative length");
    append(std::string_view(data ? data : "", data ? static_cast<std::size_t>(length) : 0));
}

utString::utString(std::string_view text) : m_rep(nullptr) { append(text); }

utString& utString::operator=(utString const& other)
{
    Rep* rep = other.m_rep;
    if (rep)
        ++rep->refs;
    release();
    m_rep = rep;
    return *this;
}

utString& utString::operator=(utString&& other) noexcept
{
    if (this != &other) {
        release();
        m_rep = other.m_rep;
        other.m_rep = nullptr;
    }
    return *this;
}

utString& utString::append(std::string_view bytes)
{
    std::size_t old = static_cast<std::size_t>(length());
    if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) - old - sizeof(Rep))
        throw std::length_error("utString: too long");
    int total = static_cast<int>(old + bytes.size());
    if (m_rep && bytes.empty())
        return *this;
    Rep* rep = allocate(total);
    if (old)
        std::memcpy(rep->data, m_rep->data, old);
    if (!bytes.empty())
        std::memcpy(rep->data + old, bytes.data(), bytes.size());
    release();
    m_rep = rep;
    return *this;
}

utString& utString::operator+=(int v)
{
    char buf[16];
    int n = std::snprintf(buf, sizeof buf, "%d", v);
    return append(std::string_view(buf, static_cast<std::size_t>(n)));
}

int utString::operator==(utString const& other) const
{
    if (m_rep == other.m_rep)
        return 1;
    if (!m_rep || !other.m_rep)
        return 0;
    return view() == other.view();
}

int utString::operator==(char const* text) const
{
    if (!text)
        return m_rep == nullptr;
    return m_rep && view() == std::string_view(text);
}

utString operator+(utString const& a, utString const& b)
{
    utString r(a);
    r += b;
    return r;
}

utString operator+(utString const& a, char const* b)
{
    utString r(a);
    r += b;
    return r;
}

utString operator+(char const* a, utString const& b)
{
    utString r(a);
    r += b;
    return r;
}

utString operator+(utString const& a, int b)
{
    utString r(a);
    r += b;
    return r;
}

std::ostream& operator<<(std::ostream& os, utString const& s)
{
    return os.write(s.c_str(), s.length());
}
