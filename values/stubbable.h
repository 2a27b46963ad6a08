// stoStubbable: objects that can be written as stubs.
//
// A stub names an object by its parent's stub and an identifying value
// instead of holding its contents: the system by its version, a schema by its
// identity, a type or mapper by its name within its schema, a member by its
// name within its class. The store's meta objects are stubbable; an
// application class may be too, by deriving from stoStubbable.
#pragma once

#include "types/persistent.h"
#include "values/raw_ptr.h"

class stoValue;

class stoStubbable {
    STO_PERSISTENT(stoStubbable)
public:
    // A new stub value for this object; the caller owns it.
    virtual stoValue* create_stub() const = 0;
    // The object whose stub is the parent of this one; null raw pointer if none.
    virtual stoRawPtr stub_parent() const = 0;
    // The part of this object that identifies it within its parent.
    virtual stoRawPtr stub_id() const = 0;
    virtual ~stoStubbable() = default;

    // The object at p viewed as stubbable; null for a null address, a type
    // that is not a class, or a class that does not derive from stoStubbable.
    static stoStubbable const* to_stubbable(stoRawPtr const& p);

protected:
    stoStubbable() = default;
};
STO_DECLARE_CLASS(stoStubbable)

class stoPtrValue;

// A pointer value whose pointee is set later: when a graph is converted, a
// plain pointer may be met before its target's new value exists, so the
// pointer is made null and this record says what it is to point at once the
// old pointee is converted into the given type. The record owns none of the
// three.
class stoDeferredPointee {
public:
    stoDeferredPointee() : m_pointer(nullptr), m_pointee(nullptr) {}
    stoDeferredPointee(stoPtrValue* pointer, stoValue const* pointee, stoTypeHandle const& pointee_type)
        : m_pointer(pointer), m_pointee(pointee), m_pointee_type(pointee_type)
    {
    }
    stoDeferredPointee(stoDeferredPointee const&) = default;
    stoDeferredPointee& operator=(stoDeferredPointee const&) = default;

    stoPtrValue* pointer() const { return m_pointer; }
    stoValue const* pointee() const { return m_pointee; }
    stoTypeHandle pointee_type() const { return m_pointee_type; }
    // An empty record, as made by the default constructor.
    int invalid() const { return !m_pointer && !m_pointee && m_pointee_type.is_null(); }

private:
    stoPtrValue* m_pointer;
    stoValue const* m_pointee;
    stoTypeHandle m_pointee_type;
};

// Deletes a stub made by create_stub() together with the chain of parent
// stubs it made for itself (a stub does not own its parent).
void sto_delete_stub_chain(stoValue const* stub);
