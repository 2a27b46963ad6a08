#include "types/builder.h"

#include "types/array.h"
#include "types/basic.h"
#include "types/class.h"

namespace {
stoBuilder* s_active_builder = nullptr;
}  // namespace

stoBuilder::stoBuilder(stoClass* cls) : m_class(cls) { s_active_builder = this; }

stoBuilder::~stoBuilder() { s_active_builder = nullptr; }

stoBuilder* stoBuilder::active() { return s_active_builder; }

void stoBuilder::build_base(stoTypeHandle const& base, int offset)
{
    stoObjectPtr o = base->sto_object();
    stoClass const* base_class = stoClass::sto_dynamic_cast(o.type(), o.ptr());
    stoBase* record = new stoBase(base_class, offset);
    stoBase** place = &m_class->m_base_chain;
    while (*place)
        place = &(*place)->m_next_base;
    *place = record;
}

stoMember* stoBuilder::build_member_body(stoTypeHandle const& type, char const* name, int offset, int size)
{
    stoMember* member = new stoMember(m_class, type, name, offset, size);
    stoMember** place = &m_class->m_member_chain;
    while (*place)
        place = &(*place)->m_next_member;
    *place = member;
    return member;
}

void stoBuilder::build_member(stoTypeHandle const& type, char const* name, int offset, int size)
{
    build_member_body(type, name, offset, size);
}

void stoBuilder::build_sized_array(stoTypeHandle const& element, char const* name, int offset, int size,
                                   char const* size_name, int size_offset, int size_size)
{
    stoMember* count = build_member_body(sto_type_int(), size_name, size_offset, size_size);
    stoMember* array = build_member_body(stoTypeHandle(), name, offset, size);
    stoTypeHandle type = stoVariableArrayType::make(element, array, new stoOffsetArraySize(count));
    array->set_type(build_unnamed_type(type));
}

void stoBuilder::build_method_array(stoTypeHandle const& element, char const* name, int offset, int size,
                                    int (*count)(void const*), char const* count_name)
{
    stoMember* array = build_member_body(stoTypeHandle(), name, offset, size);
    stoTypeHandle type = stoVariableArrayType::make(element, array, new stoMethodArraySize(count_name, count));
    array->set_type(build_unnamed_type(type));
}

stoTypeHandle stoBuilder::build_unnamed_type(stoTypeHandle const& type)
{
    m_class->schema()->add_unnamed_type(type);
    return type;
}
