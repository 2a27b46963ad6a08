// utRef: the shared count behind counted pointers.
//
// A count of 1, or -1 for an object that was never shared, marks a single
// owner. The count lives in an allocation of its own so that counted
// pointers to any class have the same two-pointer layout.
#pragma once

class utRef {
public:
    explicit utRef(int count = 1) : m_count(count) {}
    int count() const { return m_count; }
    // A single owner holds an unshared object.
    int unique() const { return m_count == 1 || m_count == -1; }
    void increment() { m_count = (m_count == -1) ? 2 : m_count + 1; }
    // Answers the count left after letting go of one reference.
    int decrement() { m_count = (m_count == -1) ? 0 : m_count - 1; return m_count; }

private:
    int m_count;
};
