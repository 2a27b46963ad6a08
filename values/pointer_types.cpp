#include "values/pointer_types.h"

#include "types/class.h"
#include "types/describe.h"
#include "values/visitors.h"

#include <new>

// ------------------------------------------------------------------- stoPrf

stoPrf::stoPrf(stoPrf const& other) : m_pointer(other.m_pointer), m_count(other.m_count)
{
    if (m_count)
        m_count->increment();
}

stoPrf& stoPrf::operator=(stoPrf const& other)
{
    if (this != &other) {
        if (other.m_count)
            other.m_count->increment();
        release();
        m_pointer = other.m_pointer;
        m_count = other.m_count;
    }
    return *this;
}

void stoPrf::release()
{
    if (m_count && m_count->decrement() <= 0) {
        delete m_count;
        // The pointee's class is unknown here; its type destroyed it already
        // when it had to run a destructor.
        ::operator delete(m_pointer);
    }
    m_pointer = nullptr;
    m_count = nullptr;
}

// --------------------------------------------------------------- stoPtrType

stoTypeHandle stoPtrType::make(stoTypeHandle const& pointee)
{
    // Objects of classes have their identity already.
    if (!pointee.is_null() && !pointee->is_class())
        pointee->set_plain_pointee();
    return (new stoPtrType(pointee))->handle();
}

int stoPtrType::process(stoProcessType* p) const { return p->process_stoPtrType(this); }

void* stoPtrType::create() const { return new void*(nullptr); }
void stoPtrType::destroy(void* p) const { delete static_cast<void**>(p); }
void* stoPtrType::create_array(int n) const { return new void*[static_cast<std::size_t>(n)](); }
void stoPtrType::destroy_array(void* p, int) const { delete[] static_cast<void**>(p); }

int stoPtrType::operator==(stoType const& other) const
{
    if (*sto_dynamic_class() != *other.sto_dynamic_class())
        return 0;
    return m_type == static_cast<stoPtrType const&>(other).m_type;
}

unsigned int stoPtrType::hash() const { return sto_scramble(co_hash(m_type), 13); }

void const* stoPtrType::raw_pointee(void const* field) const { return *static_cast<void* const*>(field); }

void stoPtrType::point_at_object(void* field, void* object) const { *static_cast<void**>(field) = object; }

void stoPtrType::copy(void const* from, void* to) const { *static_cast<void**>(to) = const_cast<void*>(raw_pointee(from)); }

void stoPtrType::destroy_pointee(void* p) const
{
    if (!p || m_type.is_null())
        return;
    stoRawPtr whole = m_type->true_type(p);
    if (!whole.type().is_null())
        whole.type()->destroy(const_cast<void*>(whole.ptr()));
}

// --------------------------------------------------------------- stoPrgType

stoTypeHandle stoPrgType::make(stoTypeHandle const& pointee) { return (new stoPrgType(pointee))->handle(); }

int stoPrgType::process(stoProcessType* p) const { return p->process_stoPrgType(this); }

void stoPrgType::destroy(void* p) const
{
    if (!p)
        return;
    destroy_pointee(*static_cast<void**>(p));
    delete static_cast<void**>(p);
}

void stoPrgType::destroy_array(void* p, int n) const
{
    if (!p)
        return;
    void** cells = static_cast<void**>(p);
    for (int i = 0; i < n; ++i)
        destroy_pointee(cells[i]);
    delete[] cells;
}

// An owning pointer cannot share its pointee.
void stoPrgType::copy(void const*, void*) const {}

// --------------------------------------------------------------- stoPrfType

stoTypeHandle stoPrfType::make(stoTypeHandle const& pointee) { return (new stoPrfType(pointee))->handle(); }

int stoPrfType::process(stoProcessType* p) const { return p->process_stoPrfType(this); }

void* stoPrfType::create() const { return new stoPrf(); }

void stoPrfType::release_field(stoPrf* field) const
{
    if (field->unique() && field->pointer()) {
        destroy_pointee(field->pointer());
        field->set_pointer(nullptr);
    }
    field->release();
}

void stoPrfType::destroy(void* p) const
{
    if (!p)
        return;
    stoPrf* field = static_cast<stoPrf*>(p);
    release_field(field);
    delete field;
}

void* stoPrfType::create_array(int n) const { return new stoPrf[static_cast<std::size_t>(n)]; }

void stoPrfType::destroy_array(void* p, int n) const
{
    if (!p)
        return;
    stoPrf* fields = static_cast<stoPrf*>(p);
    for (int i = 0; i < n; ++i)
        release_field(&fields[i]);
    delete[] fields;
}

void const* stoPrfType::raw_pointee(void const* field) const { return static_cast<stoPrf const*>(field)->pointer(); }

void stoPrfType::point_at_object(void* field, void* object) const { *static_cast<stoPrf*>(field) = stoPrf(object); }

void stoPrfType::copy(void const* from, void* to) const
{
    *static_cast<stoPrf*>(to) = *static_cast<stoPrf const*>(from);
}

// -------------------------------------------------------- stoTypeHandleType

stoTypeHandle stoTypeHandleType::make() { return (new stoTypeHandleType(sto_type_stoType()))->handle(); }

int stoTypeHandleType::process(stoProcessType* p) const { return p->process_stoTypeHandleType(this); }

void* stoTypeHandleType::create() const { return new stoTypeHandle(); }
void stoTypeHandleType::destroy(void* p) const { delete static_cast<stoTypeHandle*>(p); }
void* stoTypeHandleType::create_array(int n) const { return new stoTypeHandle[static_cast<std::size_t>(n)]; }
void stoTypeHandleType::destroy_array(void* p, int) const { delete[] static_cast<stoTypeHandle*>(p); }

void const* stoTypeHandleType::raw_pointee(void const* field) const
{
    return static_cast<stoTypeHandle const*>(field)->type();
}

// Every type class of the store has stoType as its first base, so the
// object's address is its stoType part.
void stoTypeHandleType::point_at_object(void* field, void* object) const
{
    *static_cast<stoTypeHandle*>(field) = stoTypeHandle(static_cast<stoType*>(object));
}

void stoTypeHandleType::copy(void const* from, void* to) const
{
    *static_cast<stoTypeHandle*>(to) = *static_cast<stoTypeHandle const*>(from);
}

// ------------------------------------------------------------ descriptions

STO_CLASS(stoPtrType, sto_schema_sto_schema())
{
    STO_BASE(stoType);
    STO_MEMBER(m_type);
}

STO_CLASS(stoPrgType, sto_schema_sto_schema())
{
    STO_BASE(stoPtrType);
}

STO_CLASS(stoPrfType, sto_schema_sto_schema())
{
    STO_BASE(stoPtrType);
}

STO_CLASS(stoTypeHandleType, sto_schema_sto_schema())
{
    STO_BASE(stoPtrType);
}
