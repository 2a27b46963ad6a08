// Pointer types: the meta types of pointer members.
//
//   stoPtrType         plain pointer, owns nothing        -> stoPtrValue
//   stoPrgType         pointer owning its pointee (coPrg) -> stoPrgValue
//   stoPrfType         counted pointer (stoPrf / coPrf)   -> stoPrfValue
//   stoTypeHandleType  a stoTypeHandle                    -> stoTypeHandleValue
//
// Plain and type-handle pointers are resolved against the object made by the
// pointee's owner; owning and counted pointers make their pointee.
#pragma once

#include "platform/co_pointers.h"
#include "platform/ut_ref.h"
#include "types/persistent.h"
#include "types/type.h"

class stoPtrValue;

// The store's view of any counted pointer field: an address and its shared
// count, laid out as every coPrf is. Letting go of the last reference frees
// the memory without running a destructor; stoPrfType::destroy runs the
// pointee's destructor through its type first.
class stoPrf {
public:
    stoPrf() : m_pointer(nullptr), m_count(nullptr) {}
    // A fresh count for p.
    explicit stoPrf(void* p) : m_pointer(p), m_count(p ? new utRef(1) : nullptr) {}
    stoPrf(stoPrf const& other);
    stoPrf& operator=(stoPrf const& other);
    ~stoPrf() { release(); }

    void* pointer() const { return m_pointer; }
    // Replaces the address; the count is unchanged.
    void set_pointer(void* p) { m_pointer = p; }
    int unique() const { return m_count == nullptr || m_count->unique(); }
    utRef* count() const { return m_count; }
    void release();
    static int size() { return static_cast<int>(sizeof(stoPrf)); }

private:
    void* m_pointer;
    utRef* m_count;
};
static_assert(sizeof(stoPrf) == sizeof(coPrf<int>), "a counted pointer field is an address and a count");

// The opaque pointee class of the store's view of counted pointers.
class stoPrfee;
using stoPrfeecoPrf = coPrf<stoPrfee>;

class stoPtrType : public stoType {
    STO_PERSISTENT(stoPtrType)
public:
    // A new type on every call; the caller decides its owner.
    static stoTypeHandle make(stoTypeHandle const& pointee);

    stoTypeHandle pointee_type() const { return m_type; }

    int process(stoProcessType* p) const override;
    int size() const override { return static_cast<int>(sizeof(void*)); }
    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;
    // Same kind of pointer and equal pointee types.
    int operator==(stoType const& other) const override;
    unsigned int hash() const override;

    // The address held in the field.
    virtual void const* raw_pointee(void const* field) const;
    // Makes the field point at object.
    virtual void point_at_object(void* field, void* object) const;
    // Makes the field `to` refer to what the field `from` refers to.
    virtual void copy(void const* from, void* to) const;
    // A new null pointer value of this type; the caller owns it.
    virtual stoPtrValue* create_null() const;

protected:
    explicit stoPtrType(stoTypeHandle const& pointee) : m_type(pointee) {}
    stoPtrType() = default;
    // Destroys the object at p as its most-derived type.
    void destroy_pointee(void* p) const;

    stoTypeHandle m_type;
};
STO_DECLARE_CLASS(stoPtrType)

class stoPrgType : public stoPtrType {
    STO_PERSISTENT(stoPrgType)
public:
    static stoTypeHandle make(stoTypeHandle const& pointee);

    int process(stoProcessType* p) const override;
    void destroy(void* p) const override;
    void destroy_array(void* p, int n) const override;
    void copy(void const* from, void* to) const override;
    stoPtrValue* create_null() const override;

protected:
    explicit stoPrgType(stoTypeHandle const& pointee) : stoPtrType(pointee) {}
    stoPrgType() = default;
};
STO_DECLARE_CLASS(stoPrgType)

class stoPrfType : public stoPtrType {
    STO_PERSISTENT(stoPrfType)
public:
    static stoTypeHandle make(stoTypeHandle const& pointee);

    int process(stoProcessType* p) const override;
    int size() const override { return stoPrf::size(); }
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;
    void const* raw_pointee(void const* field) const override;
    void point_at_object(void* field, void* object) const override;
    void copy(void const* from, void* to) const override;
    stoPtrValue* create_null() const override;

protected:
    explicit stoPrfType(stoTypeHandle const& pointee) : stoPtrType(pointee) {}
    stoPrfType() = default;
    // Destroys a sole-owned pointee through its type, then releases the count.
    void release_field(stoPrf* field) const;
};
STO_DECLARE_CLASS(stoPrfType)

class stoTypeHandleType : public stoPtrType {
    STO_PERSISTENT(stoTypeHandleType)
public:
    static stoTypeHandle make();

    int process(stoProcessType* p) const override;
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;
    void const* raw_pointee(void const* field) const override;
    void point_at_object(void* field, void* object) const override;
    void copy(void const* from, void* to) const override;
    stoPtrValue* create_null() const override;

protected:
    explicit stoTypeHandleType(stoTypeHandle const& pointee) : stoPtrType(pointee) {}
    stoTypeHandleType() = default;
};
STO_DECLARE_CLASS(stoTypeHandleType)
