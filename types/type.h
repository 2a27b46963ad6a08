// stoType, the abstract base of every meta type, and the records through
// which a schema owns its types.
//
// A type knows the size of a live instance, creates and destroys instances,
// converts an instance to a value and back, and compares and hashes itself
// structurally. Named types are owned by their schema through bindings;
// anonymous types (pointer and array types made while a class is described)
// through the schema's chain of stoUnnamedType records.
#pragma once

#include "platform/co_containers.h"
#include "platform/ut_string.h"
#include "types/persistent.h"
#include "types/type_handle.h"
#include "values/raw_ptr.h"

class stoAnalyser;
class stoSynthesiser;
class stoValue;
class stoProcessType;

class stoType {
    STO_PERSISTENT(stoType)
public:
    virtual int process(stoProcessType* p) const = 0;
    virtual int size() const = 0;
    // The most-derived object at p; here simply this type at p.
    virtual stoRawPtr true_type(void const* p) const;
    virtual stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const = 0;
    virtual void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const = 0;
    virtual void* create() const = 0;
    virtual void destroy(void* p) const = 0;
    virtual void* create_array(int n) const = 0;
    virtual void destroy_array(void* p, int n) const = 0;
    virtual int operator==(stoType const& other) const = 0;
    // p when this type equals t, else null; classes walk their base graph.
    virtual void const* cast(stoType const& t, void const* p) const;
    virtual ~stoType();

    stoTypeHandle handle() const { return m_handle; }
    int operator!=(stoType const& other) const { return !(*this == other); }
    // Whether this is a class (objects of classes are what pointers reach).
    int is_class() const { return m_is_class; }
    // Whether this is not a class and a plain pointer type to it was made.
    // Conversions then give its instances an identity of their own, as they
    // do to objects, so that an int* into an object's int member finds that
    // member's value; instances of other types that are not classes are
    // reached through their container alone and skip the tables.
    int is_plain_pointee() const { return m_plain_pointee; }
    void set_plain_pointee() const { m_plain_pointee = 1; }

protected:
    friend unsigned int co_hash(stoType const& type);
    stoType() : m_handle(this) {}
    stoType(stoType const&) = delete;
    stoType& operator=(stoType const&) = delete;
    virtual unsigned int hash() const = 0;

    stoTypeHandle m_handle;
    int m_is_class = 0;
    // Only ever set, by the making of a plain pointer type: a type outlives
    // the pointer types that point at it, and a stale 1 costs time only.
    mutable int m_plain_pointee = 0;
};
STO_DECLARE_CLASS(stoType)

// Owning holder of a type: destroying the owner destroys the type.
class stoTypeOwner : public stoTypeHandle {
    STO_PERSISTENT(stoTypeOwner)
public:
    stoTypeOwner() = default;
    explicit stoTypeOwner(stoTypeHandle const& type) : stoTypeHandle(type) {}
    stoTypeOwner(stoTypeOwner const&) = delete;
    stoTypeOwner& operator=(stoTypeOwner const&) = delete;
    virtual ~stoTypeOwner();

    // Destroys the type now and leaves the owner null.
    void destroy_type();
};
STO_DECLARE_CLASS(stoTypeOwner)

// One anonymous type of a schema's chain; owns its type and the rest of the
// chain after it.
class stoUnnamedType {
    STO_PERSISTENT(stoUnnamedType)
public:
    virtual ~stoUnnamedType();
    stoTypeHandle type() const { return m_type; }
    stoUnnamedType const* next() const { return m_next_type; }

protected:
    friend class stoSchema;
    stoUnnamedType(stoTypeHandle const& type, stoUnnamedType* next) : m_type(type), m_next_type(next) {}
    stoUnnamedType() : m_next_type(nullptr) {}
    stoUnnamedType(stoUnnamedType const&) = delete;
    stoUnnamedType& operator=(stoUnnamedType const&) = delete;

    stoTypeOwner m_type;
    stoUnnamedType* m_next_type;
};
STO_DECLARE_CLASS(stoUnnamedType)

// Handles key sets and tables structurally: two equal types built
// separately land on the same key.
using stoTypeHandlecoSet = coSet<stoTypeHandle>;
using stoTypeHandleintcoTable = coTable<stoTypeHandle, int>;
using utStringstoTypeHandlecoTable = coTable<utString, stoTypeHandle>;
