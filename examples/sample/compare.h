// The walk shared by the deep equality and the census (equal.cpp,
// equal_items.cpp); not part of the sample's interface.
//
// The walk follows ownership (embedded objects, arrays, owning and counted
// pointers) by recursion, which is bounded by the document's nesting: the
// generator keeps owning chains short. Plain pointers are not followed at
// once: their targets are paired and compared when ownership reaches them,
// or at the end for targets that nothing in the document owns.
//
// Sharing: every object that a pointer can reach is paired with its
// counterpart on first sight, and the pairing must stay one to one. The
// counts behind counted pointers are paired the same way, so two counted
// pointers that share in one document must share in the other. Small value
// objects that no pointer of the application can reach (points, vectors,
// tolerance zones, ...) are compared where they are and not paired.
#pragma once

#include "sample.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace sample_compare {

// Where the walk is, as a chain of stack-allocated steps; it becomes text
// only for the explanation of a difference.
struct Path {
    explicit Path(char const* root) : name(root) {}
    Path(Path const& parent, char const* member) : up(&parent), name(member) {}
    Path(Path const& parent, long element) : up(&parent), index(element) {}

    std::string str() const
    {
        std::string s = up ? up->str() : std::string();
        if (index >= 0)
            return s + "[" + std::to_string(index) + "]";
        if (label)
            return s + "{" + name + "}";
        return up ? s + "." + name : s + name;
    }

    Path const* up = nullptr;
    char const* name = "";
    long index = -1;
    bool label = false;
};

// A step that names the object (an item's name) rather than a member.
inline Path labelled(Path const& parent, char const* text)
{
    Path p(parent, text);
    p.label = true;
    return p;
}

// From addresses to addresses, by open addressing: the walk pairs millions
// of objects, and a node per entry would cost more than the walk itself.
class PointerMap {
public:
    struct Slot {
        void const* key;
        void const* value;
        bool flag;
    };

    // key's slot, or null.
    Slot* find(void const* key)
    {
        if (m_slots.empty())
            return nullptr;
        Slot* s = probe(key);
        return s->key ? s : nullptr;
    }

    // key's slot, and whether it was added (with value and flag) just now.
    std::pair<Slot*, bool> insert(void const* key, void const* value, bool flag)
    {
        if ((m_used + 1) * 2 > m_slots.size())
            grow();
        Slot* s = probe(key);
        if (s->key)
            return {s, false};
        *s = Slot{key, value, flag};
        ++m_used;
        return {s, true};
    }

private:
    // The slot holding key, or the empty slot where it would go.
    Slot* probe(void const* key)
    {
        std::uint64_t h = reinterpret_cast<std::uintptr_t>(key);
        h ^= h >> 33;
        h *= 0xff51afd7ed558ccdull;
        h ^= h >> 33;
        std::size_t mask = m_slots.size() - 1;
        for (std::size_t i = static_cast<std::size_t>(h) & mask;; i = (i + 1) & mask)
            if (m_slots[i].key == key || !m_slots[i].key)
                return &m_slots[i];
    }

    void grow()
    {
        std::vector<Slot> old(m_slots.empty() ? 1024 : m_slots.size() * 2, Slot{nullptr, nullptr, false});
        old.swap(m_slots);
        for (Slot const& s : old)
            if (s.key)
                *probe(s.key) = s;
    }

    std::vector<Slot> m_slots;  // a power of two of them, at most half used
    std::size_t m_used = 0;
};

class Comparer;
using Deferred = void (*)(Comparer&, void const*, void const*, Path const&);

class Comparer {
public:
    explicit Comparer(std::map<std::string, long>* census) : m_census(census) {}

    bool failed() const { return m_failed; }
    std::string const& why() const { return m_why; }

    void fail(Path const& p, std::string const& what)
    {
        if (!m_failed) {
            m_failed = true;
            m_why = p.str() + ": " + what;
        }
    }

    void count(char const* class_name)
    {
        if (m_census)
            ++(*m_census)[class_name];
    }

    // Pairs two objects (whole-object addresses) reached by ownership;
    // true when their contents are still to be compared.
    bool enter(void const* a, void const* b, Path const& p) { return pair(a, b, p, true) == kCompare; }

    // Pairs the targets of two plain pointers; their contents are compared
    // when ownership reaches them, or at the end.
    void link(void const* a, void const* b, void const* typed_a, void const* typed_b, Deferred compare, Path const& p)
    {
        if (pair(a, b, p, false) == kLinked)
            m_deferred.push_back({a, typed_a, typed_b, compare, p.str()});
    }

    // The counts of two counted pointers.
    void share(utRef const* a, utRef const* b, Path const& p)
    {
        if (m_failed)
            return;
        auto [i, added] = m_refs_ab.insert(a, b, false);
        if (!added) {
            if (i->value != b)
                fail(p, "counted pointers share their object differently");
            return;
        }
        if (!m_refs_ba.insert(b, a, false).second)
            fail(p, "counted pointers share their object differently");
    }

    // Compares whatever only plain pointers reached.
    void finish()
    {
        for (std::size_t i = 0; i < m_deferred.size() && !m_failed; ++i) {
            Pending d = m_deferred[i];
            if (!m_ab.find(d.key)->flag)
                d.compare(*this, d.a, d.b, Path(d.path.c_str()));
        }
    }

private:
    enum Pairing { kConflict, kKnown, kLinked, kCompare };
    struct Pending {
        void const* key;
        void const* a;
        void const* b;
        Deferred compare;
        std::string path;
    };

    Pairing pair(void const* a, void const* b, Path const& p, bool compare)
    {
        if (m_failed)
            return kConflict;
        // The flag of a's slot: its contents are compared (or being compared).
        auto [i, added] = m_ab.insert(a, b, compare);
        if (!added) {
            if (i->value != b) {
                fail(p, "this object is already matched with another object of the other document "
                        "(pointers share differently)");
                return kConflict;
            }
            if (!compare || i->flag)
                return kKnown;
            i->flag = true;
            return kCompare;
        }
        if (!m_ba.insert(b, a, false).second) {
            fail(p, "the other document's object here is already matched with another object "
                    "(pointers share differently)");
            return kConflict;
        }
        return compare ? kCompare : kLinked;
    }

    std::map<std::string, long>* m_census;
    bool m_failed = false;
    std::string m_why;
    PointerMap m_ab;       // a's objects to b's
    PointerMap m_ba;       // b's objects to a's
    PointerMap m_refs_ab;  // the counts behind a's counted pointers to b's
    PointerMap m_refs_ba;
    std::vector<Pending> m_deferred;
};

template <class T>
std::string show(T const& v)
{
    std::ostringstream os;
    os.precision(17);
    os << v;
    return os.str();
}

inline std::string show(utString const& s)
{
    if (s.is_null())
        return "null";
    std::string quoted = "\"";
    quoted += s.view();
    quoted += '"';
    return quoted;
}

// ---------------------------------------------------------- basic members

inline void cmp(Comparer& c, int a, int b, Path const& p)
{
    if (!c.failed() && a != b)
        c.fail(p, show(a) + " != " + show(b));
}

inline void cmp(Comparer& c, long long a, long long b, Path const& p)
{
    if (!c.failed() && a != b)
        c.fail(p, show(a) + " != " + show(b));
}

template <class E>
    requires std::is_enum_v<E>
void cmp(Comparer& c, E a, E b, Path const& p)
{
    cmp(c, static_cast<int>(a), static_cast<int>(b), p);
}

// Bit for bit: 0.0 and -0.0 differ.
inline void cmp(Comparer& c, double a, double b, Path const& p)
{
    if (!c.failed() && std::memcmp(&a, &b, sizeof a) != 0)
        c.fail(p, show(a) + " != " + show(b));
}

inline void cmp(Comparer& c, utString const& a, utString const& b, Path const& p)
{
    if (!c.failed() && (a.is_null() != b.is_null() || a.view() != b.view()))
        c.fail(p, show(a) + " != " + show(b));
}

inline void cmp(Comparer& c, stoByteArray const& a, stoByteArray const& b, Path const& p)
{
    if (c.failed())
        return;
    if (a.size() != b.size())
        c.fail(p, "byte arrays of " + show(a.size()) + " and " + show(b.size()) + " bytes");
    else if (a.size() > 0 && std::memcmp(a.array(), b.array(), static_cast<std::size_t>(a.size())) != 0)
        c.fail(p, "byte arrays differ");
}

inline void cmp(Comparer& c, stoTypeHandle const& a, stoTypeHandle const& b, Path const& p)
{
    if (c.failed())
        return;
    if (a.is_null() != b.is_null())
        c.fail(p, a.is_null() ? "null type handle in the first document only" : "null type handle in the second document only");
    else if (!a.is_null() && !(a == b))
        c.fail(p, "type handles name different types");
}

template <class T, std::size_t N>
void cmp(Comparer& c, T const (&a)[N], T const (&b)[N], Path const& p)
{
    for (std::size_t i = 0; i < N && !c.failed(); ++i)
        cmp(c, a[i], b[i], Path(p, static_cast<long>(i)));
}

// ------------------------------------------------------ pointers, arrays

// True when both are set; a difference in null-ness is a failure.
inline bool both(Comparer& c, void const* a, void const* b, Path const& p)
{
    if (c.failed())
        return false;
    if ((a == nullptr) != (b == nullptr)) {
        c.fail(p, a ? "null in the second document only" : "null in the first document only");
        return false;
    }
    return a != nullptr;
}

template <class T>
bool same_class(Comparer& c, T const& a, T const& b, Path const& p)
{
    if (typeid(a) == typeid(b))
        return true;
    c.fail(p, std::string("objects of different classes (") + typeid(a).name() + ", " + typeid(b).name() + ")");
    return false;
}

// A plain pointer: owns nothing.
template <class T>
void cmp(Comparer& c, T* const& a, T* const& b, Path const& p)
{
    if (!both(c, a, b, p) || !same_class(c, *a, *b, p))
        return;
    Deferred later = [](Comparer& cc, void const* x, void const* y, Path const& pp) {
        cmp(cc, *static_cast<T const*>(x), *static_cast<T const*>(y), pp);
    };
    c.link(dynamic_cast<void const*>(a), dynamic_cast<void const*>(b), a, b, later, p);
}

// An owning pointer, raw.
template <class T>
void owned(Comparer& c, T const* a, T const* b, Path const& p)
{
    if (both(c, a, b, p))
        cmp(c, *a, *b, p);
}

template <class T>
void cmp(Comparer& c, coPrg<T> const& a, coPrg<T> const& b, Path const& p)
{
    owned(c, a.get(), b.get(), p);
}

template <class T>
void cmp(Comparer& c, coPrf<T> const& a, coPrf<T> const& b, Path const& p)
{
    if (!both(c, a.get(), b.get(), p))
        return;
    // A count held by this pointer alone, on both sides, cannot be met again.
    if (!a.unique() || !b.unique())
        c.share(a.ref(), b.ref(), p);
    cmp(c, *a, *b, p);
}

// n elements of a block that a class owns.
template <class T>
void elements(Comparer& c, T const* a, T const* b, int n, Path const& p)
{
    for (int i = 0; i < n && !c.failed(); ++i)
        cmp(c, a[i], b[i], Path(p, static_cast<long>(i)));
}

#define CMP(m) cmp(c, a.m, b.m, Path(p, #m))
#define SIZED(m, n)                             \
    do {                                        \
        CMP(n);                                 \
        elements(c, a.m, b.m, a.n, Path(p, #m)); \
    } while (0)

// An object with identity: paired with its counterpart, compared once.
#define ENTER(name)                                                                       \
    do {                                                                                  \
        if (!same_class(c, a, b, p) || !c.enter(dynamic_cast<void const*>(&a), dynamic_cast<void const*>(&b), p)) \
            return;                                                                       \
        c.count(name);                                                                    \
    } while (0)

// The objects and items, one function each (equal.cpp, equal_items.cpp).
void cmp(Comparer& c, annPoint const& a, annPoint const& b, Path const& p);
void cmp(Comparer& c, annVector const& a, annVector const& b, Path const& p);
void cmp(Comparer& c, annUnits const& a, annUnits const& b, Path const& p);
void cmp(Comparer& c, annRevision const& a, annRevision const& b, Path const& p);
void cmp(Comparer& c, gdtToleranceZone const& a, gdtToleranceZone const& b, Path const& p);
void cmp(Comparer& c, gdtDatumReference const& a, gdtDatumReference const& b, Path const& p);
void cmp(Comparer& c, vniParameters const& a, vniParameters const& b, Path const& p);
void cmp(Comparer& c, vniSegment const& a, vniSegment const& b, Path const& p);
void cmp(Comparer& c, annItemList const& a, annItemList const& b, Path const& p);
void cmp(Comparer& c, annStyle const& a, annStyle const& b, Path const& p);
void cmp(Comparer& c, annTransform const& a, annTransform const& b, Path const& p);
void cmp(Comparer& c, annLeader const& a, annLeader const& b, Path const& p);
void cmp(Comparer& c, gdtSymbol const& a, gdtSymbol const& b, Path const& p);
void cmp(Comparer& c, vniSite const& a, vniSite const& b, Path const& p);
void cmp(Comparer& c, vniPolyline const& a, vniPolyline const& b, Path const& p);
void cmp(Comparer& c, vniWeighting const& a, vniWeighting const& b, Path const& p);
void cmp(Comparer& c, vniSource const& a, vniSource const& b, Path const& p);
void cmp(Comparer& c, annViewport const& a, annViewport const& b, Path const& p);
void cmp(Comparer& c, annTitleBlock const& a, annTitleBlock const& b, Path const& p);
void cmp(Comparer& c, annView const& a, annView const& b, Path const& p);
void cmp(Comparer& c, annSheet const& a, annSheet const& b, Path const& p);
void cmp(Comparer& c, annDocument const& a, annDocument const& b, Path const& p);
void cmp(Comparer& c, annNamedItem const& a, annNamedItem const& b, Path const& p);

}  // namespace sample_compare
