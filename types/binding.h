// Schema bindings: the records through which a schema holds, orders and owns
// its named types (stoSchemaTypeBinding) and its mappers
// (stoSchemaMapperBinding). A binding owns the rest of its chain.
#pragma once

#include "types/persistent.h"
#include "types/type.h"

class stoSchema;
class stoSchemaObject;
class stoBasic;
class stoMapper;

class stoSchemaBinding {
    STO_PERSISTENT(stoSchemaBinding)
public:
    virtual ~stoSchemaBinding();

    stoSchema* schema() const { return m_schema; }
    stoSchemaObject const* object() const { return m_object; }
    stoSchemaBinding const* prev_binding() const { return m_prev_binding; }
    stoSchemaBinding const* next_binding() const { return m_next_binding; }

protected:
    friend class stoSchema;
    stoSchemaBinding(stoSchema* schema, stoSchemaObject const* object)
        : m_schema(schema), m_object(object), m_prev_binding(nullptr), m_next_binding(nullptr) {}
    stoSchemaBinding() : m_schema(nullptr), m_object(nullptr), m_prev_binding(nullptr), m_next_binding(nullptr) {}
    stoSchemaBinding(stoSchemaBinding const&) = delete;
    stoSchemaBinding& operator=(stoSchemaBinding const&) = delete;

    stoSchema* m_schema;
    stoSchemaObject const* m_object;
    stoSchemaBinding* m_prev_binding;
    stoSchemaBinding* m_next_binding;
};
STO_DECLARE_CLASS(stoSchemaBinding)

class stoSchemaTypeBinding : public stoSchemaBinding {
    STO_PERSISTENT(stoSchemaTypeBinding)
public:
    virtual ~stoSchemaTypeBinding();
    stoTypeHandle type() const { return m_type; }
    stoSchemaTypeBinding const* next() const { return static_cast<stoSchemaTypeBinding const*>(m_next_binding); }

protected:
    friend class stoSchema;
    // Appends itself to the schema's type chain; the binding owns the type.
    stoSchemaTypeBinding(stoSchema* schema, stoType* type, stoSchemaObject const* object);
    stoSchemaTypeBinding() = default;

    stoTypeOwner m_type;
};
STO_DECLARE_CLASS(stoSchemaTypeBinding)

class stoSchemaMapperBinding : public stoSchemaBinding {
    STO_PERSISTENT(stoSchemaMapperBinding)
public:
    virtual ~stoSchemaMapperBinding();
    stoMapper const* mapper() const { return m_mapper; }
    stoSchemaMapperBinding const* next() const { return static_cast<stoSchemaMapperBinding const*>(m_next_binding); }

protected:
    friend class stoSchema;
    // Appends itself to the schema's mapper chain; the binding owns the mapper.
    stoSchemaMapperBinding(stoSchema* schema, stoMapper* mapper);
    stoSchemaMapperBinding() : m_mapper(nullptr) {}

    stoMapper* m_mapper;
};
STO_DECLARE_CLASS(stoSchemaMapperBinding)
