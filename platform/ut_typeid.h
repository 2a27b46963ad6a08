// utTypeID: a run-time identity of a class, used by the exception family's
// own kind test. An identity matches itself and no other identity.
#pragma once

enum utTypeMaker { utTypeMakerDefault = 0 };

class utTypeID {
public:
    utTypeID(int maker, char const* name) : m_maker(maker), m_name(name) {}
    utTypeID(utTypeID const&) = delete;
    utTypeID& operator=(utTypeID const&) = delete;

    char const* name() const { return m_name; }
    int maker() const { return m_maker; }
    int operator==(utTypeID const& other) const { return this == &other; }
    int operator!=(utTypeID const& other) const { return this != &other; }

private:
    int m_maker;
    char const* m_name;
};
