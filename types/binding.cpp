#include "types/binding.h"

#include "types/basic.h"
#include "types/describe.h"
#include "types/system.h"
#include "values/mapper.h"

stoSchemaBinding::~stoSchemaBinding()
{
    // The rest of the chain goes with this binding; unlink it first and
    // delete it iteratively so that a long chain cannot exhaust the stack.
    stoSchemaBinding* next = m_next_binding;
    m_next_binding = nullptr;
    while (next) {
        stoSchemaBinding* after = next->m_next_binding;
        next->m_next_binding = nullptr;
        delete next;
        next = after;
    }
}

stoSchemaTypeBinding::stoSchemaTypeBinding(stoSchema* schema, stoType* type, stoSchemaObject const* object)
    : stoSchemaBinding(schema, type ? object : nullptr),
      m_type(type ? type->handle() : stoTypeHandle())
{
    m_prev_binding = schema->m_last_binding;
    schema->m_last_binding = this;
    *schema->m_binding_tail = this;
    schema->m_binding_tail = &m_next_binding;
}

stoSchemaTypeBinding::~stoSchemaTypeBinding()
{
    // The bound type goes before the bindings after it.
    m_type.destroy_type();
}

stoSchemaMapperBinding::stoSchemaMapperBinding(stoSchema* schema, stoMapper* mapper)
    : stoSchemaBinding(schema, mapper), m_mapper(mapper)
{
    m_prev_binding = schema->m_last_mapper_binding;
    schema->m_last_mapper_binding = this;
    *schema->m_mapper_tail = this;
    schema->m_mapper_tail = &m_next_binding;
}

stoSchemaMapperBinding::~stoSchemaMapperBinding()
{
    delete m_mapper;
    m_mapper = nullptr;
}

STO_ABSTRACT_CLASS(stoSchemaBinding, sto_schema_sto_schema())
{
    STO_MEMBER(m_schema);
    STO_MEMBER(m_object);
    STO_MEMBER(m_prev_binding);
    STO_OWNING_PTR(m_next_binding);
}

STO_CLASS(stoSchemaTypeBinding, sto_schema_sto_schema())
{
    STO_BASE(stoSchemaBinding);
    STO_MEMBER(m_type);
}

STO_CLASS(stoSchemaMapperBinding, sto_schema_sto_schema())
{
    STO_BASE(stoSchemaBinding);
    STO_OWNING_PTR(m_mapper);
}
