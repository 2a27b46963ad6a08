#include "types/array.h"

#include "types/class.h"
#include "types/describe.h"
#include "values/visitors.h"

#include <cstdint>
#include <cstring>
#include <new>

int stoOffsetArraySize::array_size(stoMember const* member, void const* member_address) const
{
    if (!member || !m_size_member || !member_address)
        return 0;
    char const* object = static_cast<char const*>(member_address) - member->offset();
    std::int32_t n;
    std::memcpy(&n, object + m_size_member->offset(), sizeof n);
    return n;
}

int stoMethodArraySize::array_size(stoMember const* member, void const* member_address) const
{
    if (!m_count || !member || !member_address)
        return 0;
    return m_count(static_cast<char const*>(member_address) - member->offset());
}

// -------------------------------------------------------- stoFixedArrayType

stoTypeHandle stoFixedArrayType::make(stoTypeHandle const& element, int count)
{
    return (new stoFixedArrayType(element, count))->handle();
}

int stoFixedArrayType::process(stoProcessType* p) const { return p->process_stoFixedArrayType(this); }

int stoFixedArrayType::size() const { return m_type.is_null() ? 0 : m_n_elements * m_type->size(); }

void* stoFixedArrayType::create() const { return m_type->create_array(m_n_elements); }
void stoFixedArrayType::destroy(void* p) const { m_type->destroy_array(p, m_n_elements); }
void* stoFixedArrayType::create_array(int n) const { return m_type->create_array(m_n_elements * n); }
void stoFixedArrayType::destroy_array(void* p, int n) const { m_type->destroy_array(p, m_n_elements * n); }

int stoFixedArrayType::operator==(stoType const& other) const
{
    if (*sto_dynamic_class() != *other.sto_dynamic_class())
        return 0;
    stoFixedArrayType const& o = static_cast<stoFixedArrayType const&>(other);
    return m_n_elements == o.m_n_elements && m_type == o.m_type;
}

unsigned int stoFixedArrayType::hash() const { return sto_scramble(co_hash(m_type), 5); }

// ----------------------------------------------------- stoVariableArrayType

namespace {
// Its address marks an array that was created but never filled.
char const s_unset_array = 0;
}  // namespace

void* stoVariableArrayType::unset_array() { return const_cast<char*>(&s_unset_array); }

stoTypeHandle stoVariableArrayType::make(stoTypeHandle const& element, stoMember const* member, stoArraySize* size)
{
    return (new stoVariableArrayType(element, member, size))->handle();
}

stoVariableArrayType::~stoVariableArrayType() { delete m_array_size; }

int stoVariableArrayType::process(stoProcessType* p) const { return p->process_stoVariableArrayType(this); }

void* stoVariableArrayType::create() const { return new void*(unset_array()); }
void stoVariableArrayType::destroy(void* p) const { delete static_cast<void**>(p); }
void* stoVariableArrayType::create_array(int) const { return nullptr; }
void stoVariableArrayType::destroy_array(void*, int) const {}

int stoVariableArrayType::operator==(stoType const& other) const
{
    if (*sto_dynamic_class() != *other.sto_dynamic_class())
        return 0;
    return m_type == static_cast<stoVariableArrayType const&>(other).m_type;
}

unsigned int stoVariableArrayType::hash() const { return sto_scramble(co_hash(m_type), 3); }

// ------------------------------------------------------------ descriptions

STO_ABSTRACT_CLASS(stoArraySize, sto_schema_sto_schema()) {}

STO_CLASS(stoOffsetArraySize, sto_schema_sto_schema())
{
    STO_BASE(stoArraySize);
    STO_MEMBER(m_size_member);
}

STO_CLASS(stoMethodArraySize, sto_schema_sto_schema())
{
    STO_BASE(stoArraySize);
    STO_MEMBER(m_method_name);
}

STO_ABSTRACT_CLASS(stoArrayType, sto_schema_sto_schema())
{
    STO_BASE(stoType);
    STO_MEMBER(m_type);
}

STO_CLASS(stoFixedArrayType, sto_schema_sto_schema())
{
    STO_BASE(stoArrayType);
    STO_MEMBER(m_n_elements);
}

STO_CLASS(stoVariableArrayType, sto_schema_sto_schema())
{
    STO_BASE(stoArrayType);
    STO_MEMBER(m_member);
    STO_OWNING_PTR(m_array_size);
}
