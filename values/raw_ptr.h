// Typed pointers into live memory.
//
// A live object is identified by its type and its address: a base-class or
// first-member sub-object at the same address as its container is a
// different object. The size is what the type reports and takes no part in
// equality.
#pragma once

#include "types/type_handle.h"

class stoRawPtr {
public:
    stoRawPtr() : m_ptr(nullptr), m_size(0) {}
    stoRawPtr(stoTypeHandle const& type, void const* ptr, int size) : m_type(type), m_ptr(ptr), m_size(size) {}
    // The object's true class, its address and the class's size.
    explicit stoRawPtr(stoObjectPtr const& object);

    int operator==(stoRawPtr const& other) const { return m_ptr == other.m_ptr && m_type == other.m_type; }
    int operator!=(stoRawPtr const& other) const { return !(*this == other); }

    stoTypeHandle type() const { return m_type; }
    stoTypeHandle const& type_ref() const { return m_type; }
    void const* ptr() const { return m_ptr; }
    int size() const { return m_size; }

protected:
    stoTypeHandle m_type;
    void const* m_ptr;
    int m_size;
};

class stoRWRawPtr : public stoRawPtr {
public:
    stoRWRawPtr() : m_write_ptr(nullptr) {}
    stoRWRawPtr(stoTypeHandle const& type, void* ptr, int size) : stoRawPtr(type, ptr, size), m_write_ptr(ptr) {}
    void* write_ptr() const { return m_write_ptr; }

private:
    void* m_write_ptr;
};

// Byte hash of the address exclusive-or the scrambled type hash.
unsigned int co_hash(stoRawPtr const& p);
