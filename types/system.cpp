#include "types/system.h"

#include "types/basic.h"
#include "types/binding.h"
#include "types/class.h"
#include "types/describe.h"
#include "types/type.h"
#include "values/mapper.h"

unsigned int sto_scramble(unsigned int h, int i)
{
    // The product is taken as a signed 32-bit int, as the mixer always was.
    int r = static_cast<int>(static_cast<unsigned int>(i) * 19u) % 32;
    if (r < 0)
        r += 32;
    if (r == 0)
        return h;
    return (h >> r) | (h << (32 - r));
}

unsigned int co_hash(stoSchemaID const& id)
{
    return co_hash(id.name()) ^ sto_scramble(static_cast<unsigned int>(id.version()), 7);
}

unsigned int co_hash(stoSchema const& schema) { return co_hash(schema.schema_id()); }

unsigned int co_hash(stoSchemacoSetPtrcoPtr const& schema)
{
    return schema.get() ? co_hash(*schema.get()) : 0u;
}

// ---------------------------------------------------------------- stoSystem

stoSystem::stoSystem() : m_version(1), m_schema_chain(nullptr), m_data_template_manager(nullptr) {}

stoSystem::~stoSystem()
{
    while (!m_saved_schemas.is_empty())
        m_saved_schemas.pop();
    // Each deletion unlinks its schema, so the loop ends when every loaded
    // schema is gone.
    while (m_schema_chain)
        delete m_schema_chain->m_schema;
}

void stoSystem::add_schema(stoSchema* schema) { m_schema_chain = new stoSchemaLink(schema, m_schema_chain); }

void stoSystem::remove_schema(stoSchema* schema)
{
    for (stoSchemaLink** place = &m_schema_chain; *place; place = &(*place)->m_next) {
        if ((*place)->m_schema == schema) {
            stoSchemaLink* link = *place;
            *place = link->m_next;
            delete link;
            return;
        }
    }
}

stoSchema* stoSystem::save(stoSchema* schema)
{
    m_saved_schemas.push(stoSchemacoPrg(schema));
    schema->m_in_memory = 1;
    return schema;
}

stoSchema* stoSystem::find_in_memory_schema(stoSchemaID const& id) const
{
    for (stoSchemaLink* link = m_schema_chain; link; link = link->m_next)
        if (link->m_schema->in_memory() && link->m_schema->m_schema_id.name() == id.name())
            return link->m_schema;
    return nullptr;
}

stoSchema const* stoSystem::find_loaded_schema(stoSchemaID const& id) const
{
    for (stoSchemaLink* link = m_schema_chain; link; link = link->m_next)
        if (link->m_schema->m_schema_id == id)
            return link->m_schema;
    return nullptr;
}

stoSystem* sto_system()
{
    static stoSystem s_system;
    return &s_system;
}

stoSchema* sto_schema_sto_schema()
{
    static stoSchema* s_schema = nullptr;
    if (!s_schema)
        s_schema = sto_system()->save(new stoSchema("store", 1));
    return s_schema;
}

// ---------------------------------------------------------------- stoSchema

stoSchema::stoSchema(utString const& name, int version)
    : m_system(sto_system()),
      m_schema_id(name, version),
      m_last_binding(nullptr),
      m_binding_chain(nullptr),
      m_binding_tail(nullptr),
      m_unnamed_type_chain(nullptr),
      m_mapper_chain(nullptr),
      m_last_mapper_binding(nullptr),
      m_mapper_tail(nullptr),
      m_in_memory(0)
{
    m_system->add_schema(this);
}

stoSchema::stoSchema()
    : m_system(sto_system()),
      m_schema_id("schema_prototype", -1),
      m_last_binding(nullptr),
      m_binding_chain(nullptr),
      m_binding_tail(nullptr),
      m_unnamed_type_chain(nullptr),
      m_mapper_chain(nullptr),
      m_last_mapper_binding(nullptr),
      m_mapper_tail(nullptr),
      m_in_memory(0)
{
    m_system->add_schema(this);
}

stoSchema::~stoSchema()
{
    // Unlinked from the system it was linked into at construction, not
    // through m_system: that is a persistent field, and a schema read from a
    // file may have it null or pointing elsewhere.
    sto_system()->remove_schema(this);
    delete m_binding_chain;
    m_binding_chain = nullptr;
    m_last_binding = nullptr;
    delete m_unnamed_type_chain;
    m_unnamed_type_chain = nullptr;
    delete m_mapper_chain;
    m_mapper_chain = nullptr;
}

stoSchemaObject const* stoSchema::look_up_object(utString name) const
{
    if (stoSchemaObject const* const* hit = m_object_table.find(name))
        return *hit;
    stoSchemaIT it(this);
    while (++it) {
        stoSchemaObject const* object = it();
        if (object && object->name_ref() == name) {
            m_object_table[name] = object;
            return object;
        }
    }
    return nullptr;
}

void stoSchema::finish() const
{
    stoSchemaIT it(this);
    while (++it) {
        stoSchemaObject const* object = it();
        if (!object)
            continue;
        stoObjectPtr o = object->sto_object();
        if (stoClass const* cls = stoClass::sto_dynamic_cast(o.type(), o.ptr()))
            cls->finish();
    }
}

stoSchemaBinding** stoSchema::find_tail(stoSchemaBinding** place)
{
    while (*place)
        place = &(*place)->m_next_binding;
    return place;
}

void stoSchema::add_basic(stoType* type, stoSchemaObject const* object)
{
    if (!m_binding_tail)
        m_binding_tail = find_tail(&m_binding_chain);
    new stoSchemaTypeBinding(this, type, object);
}

void stoSchema::add_mapper(stoMapper* mapper)
{
    if (!m_mapper_tail)
        m_mapper_tail = find_tail(&m_mapper_chain);
    new stoSchemaMapperBinding(this, mapper);
}

void stoSchema::add_unnamed_type(stoTypeHandle const& type)
{
    m_unnamed_type_chain = new stoUnnamedType(type, m_unnamed_type_chain);
}

stoSchemaTypeBinding const* stoSchema::first_binding() const
{
    return static_cast<stoSchemaTypeBinding const*>(m_binding_chain);
}

stoSchemaMapperBinding const* stoSchema::first_mapper_binding() const
{
    return static_cast<stoSchemaMapperBinding const*>(m_mapper_chain);
}

// --------------------------------------------------------------- stoSchemaIT

int stoSchemaIT::operator++()
{
    if (!m_started) {
        m_started = 1;
        m_binding = m_schema ? m_schema->first_binding() : nullptr;
    } else if (m_binding) {
        m_binding = m_binding->next();
    }
    return m_binding != nullptr;
}

stoSchemaObject const* stoSchemaIT::operator()() const { return m_binding ? m_binding->object() : nullptr; }

// ---------------------------------------------------------------- stub identity

stoRawPtr stoSystem::stub_parent() const { return stoRawPtr(); }

stoRawPtr stoSystem::stub_id() const { return stoRawPtr(sto_type_int(), &m_version, static_cast<int>(sizeof m_version)); }

stoRawPtr stoSchema::stub_parent() const
{
    return stoRawPtr(sto_type_stoSystem(), m_system, sto_class_stoSystem()->size());
}

stoRawPtr stoSchema::stub_id() const
{
    return stoRawPtr(sto_type_stoSchemaID(), &m_schema_id, sto_class_stoSchemaID()->size());
}

stoRawPtr stoSchemaObject::stub_parent() const
{
    return stoRawPtr(sto_type_stoSchema(), m_schema, sto_class_stoSchema()->size());
}

stoRawPtr stoSchemaObject::stub_id() const
{
    return stoRawPtr(sto_type_utString(), &m_name, static_cast<int>(sizeof m_name));
}

// ------------------------------------------------------------ descriptions

STO_CLASS(stoSchemaLink, sto_schema_sto_schema())
{
    STO_OWNING_PTR(m_next);
    STO_OWNING_PTR(m_schema);
}

STO_CLASS(stoSystem, sto_schema_sto_schema())
{
    STO_BASE(stoStubbable);
    STO_MEMBER(m_version);
    STO_OWNING_PTR(m_schema_chain);
}

STO_CLASS(stoSchema, sto_schema_sto_schema())
{
    STO_BASE(stoStubbable);
    STO_MEMBER(m_system);
    STO_MEMBER(m_schema_id);
    STO_MEMBER(m_last_binding);
    STO_MEMBER_AS(m_binding_chain, sto_builder.build_unnamed_type(stoPrgType::make(sto_type_stoSchemaTypeBinding())));
    STO_OWNING_PTR(m_unnamed_type_chain);
}

STO_CLASS(stoSchemaID, sto_schema_sto_schema())
{
    STO_MEMBER(m_name);
    STO_MEMBER(m_version);
}

STO_ABSTRACT_CLASS(stoSchemaObject, sto_schema_sto_schema())
{
    STO_BASE(stoStubbable);
    STO_MEMBER(m_schema);
    STO_MEMBER(m_name);
}
