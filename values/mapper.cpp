#include "values/mapper.h"

#include "types/describe.h"
#include "values/visitors.h"

stoMapper::stoMapper(stoSchema* schema, utString const& name) : stoSchemaObject(schema, name)
{
    schema->add_mapper(this);
}

stoStandardMapper const* sto_mapper_stoStandardMapper()
{
    static stoStandardMapper const* s_mapper = nullptr;
    if (!s_mapper)
        s_mapper = new stoStandardMapper(sto_schema_sto_schema(), "stoStandardMapper");
    return s_mapper;
}

STO_ABSTRACT_CLASS(stoMapper, sto_schema_sto_schema())
{
    STO_BASE(stoSchemaObject);
}

STO_CLASS(stoStandardMapper, sto_schema_sto_schema())
{
    STO_BASE(stoMapper);
}

stoTypeHandle stoMappedType::make(stoMapper const* mapper, int size) { return (new stoMappedType(mapper, size))->handle(); }

int stoMappedType::process(stoProcessType* p) const { return p->process_stoMappedType(this); }

stoValue* stoMappedType::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    return m_mapper->raw_to_value(analyser, p);
}

void stoMappedType::value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const
{
    m_mapper->value_to_raw(synthesiser, value, p);
}

int stoMappedType::operator==(stoType const& other) const
{
    if (*sto_dynamic_class() != *other.sto_dynamic_class())
        return 0;
    stoMapper const* o = static_cast<stoMappedType const&>(other).m_mapper;
    if (!m_mapper || !o)
        return m_mapper == o;
    return static_cast<stoSchemaObject const&>(*m_mapper) == static_cast<stoSchemaObject const&>(*o);
}

unsigned int stoMappedType::hash() const
{
    if (!m_mapper)
        return 0;
    return sto_scramble(co_hash(stoSchemacoSetPtrcoPtr(m_mapper->schema())), 5) | co_hash(m_mapper->name_ref());
}

STO_CLASS(stoMappedType, sto_schema_sto_schema())
{
    STO_BASE(stoType);
    STO_MEMBER(m_mapper);
    STO_MEMBER(m_size);
}

STO_ABSTRACT_CLASS(stoClassMapper, sto_schema_sto_schema())
{
    STO_BASE(stoMapper);
}
