#include "types/type.h"

#include "types/class.h"
#include "types/describe.h"
#include "values/raw_ptr.h"

int stoTypeHandle::operator==(stoTypeHandle const& other) const
{
    if (m_type == other.m_type)
        return 1;
    if (m_type && other.m_type)
        return *m_type == *other.m_type;
    return 0;
}

unsigned int co_hash(stoTypeHandle const& handle) { return handle.type() ? co_hash(*handle.type()) : 0u; }

unsigned int co_hash(stoType const& type) { return type.hash(); }

stoRawPtr::stoRawPtr(stoObjectPtr const& object)
    : m_type(object.type() ? object.type()->handle() : stoTypeHandle()),
      m_ptr(object.ptr()),
      m_size(object.type() ? object.type()->size() : 0)
{
}

unsigned int co_hash(stoRawPtr const& p)
{
    return co_hash_pointer(p.ptr()) ^ sto_scramble(co_hash(p.type_ref()), 7);
}

stoType::~stoType() = default;

stoRawPtr stoType::true_type(void const* p) const { return stoRawPtr(m_handle, p, size()); }

void const* stoType::cast(stoType const& t, void const* p) const { return (*this == t) ? p : nullptr; }

stoTypeOwner::~stoTypeOwner() { destroy_type(); }

void stoTypeOwner::destroy_type()
{
    stoType* type = m_type;
    m_type = nullptr;
    delete type;
}

stoUnnamedType::~stoUnnamedType()
{
    m_type.destroy_type();
    // Delete the rest of the chain iteratively: a schema may own many
    // anonymous types.
    stoUnnamedType* next = m_next_type;
    m_next_type = nullptr;
    while (next) {
        stoUnnamedType* after = next->m_next_type;
        next->m_next_type = nullptr;
        delete next;
        next = after;
    }
}

STO_ABSTRACT_CLASS(stoType, sto_schema_sto_schema())
{
    STO_MEMBER(m_handle);
}

STO_CLASS(stoTypeOwner, sto_schema_sto_schema())
{
    // The inherited handle is persisted as an owning pointer named m_type.
    if (sto_phase == sto_detail::kMembers)
        sto_builder.build_member(sto_builder.build_unnamed_type(stoPrgType::make(sto_type_stoType())), "m_type",
                                 sto_detail::base_offset<stoTypeOwner, stoTypeHandle>(this),
                                 static_cast<int>(sizeof(stoTypeHandle)));
}

STO_CLASS(stoUnnamedType, sto_schema_sto_schema())
{
    STO_MEMBER(m_type);
    STO_OWNING_PTR(m_next_type);
}
