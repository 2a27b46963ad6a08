// The system registry and schemas.
//
// Every persistent type lives in a schema, a named, versioned set of types.
// The registry (`sto_system()`) knows every schema that exists and tells the
// schemas the program compiled in and saved (`in_memory()` true) from those
// rebuilt from schema files. The system owns both kinds; a schema owns its
// named types (through type bindings), its mappers (through mapper bindings)
// and its anonymous types (through its unnamed-type chain).
//
//   stoSchema* s = sto_system()->save(new stoSchema("annotation", 16));
//   stoSchemaObject const* c = s->look_up_object("annNote");
#pragma once

#include "platform/co_containers.h"
#include "platform/co_pointers.h"
#include "platform/ut_string.h"
#include "types/persistent.h"
#include "types/schema_id.h"
#include "types/type_handle.h"
#include "values/stubbable.h"

class stoSchema;
class stoSchemaObject;
class stoSchemaTypeBinding;
class stoSchemaMapperBinding;
class stoSchemaBinding;
class stoUnnamedType;
class stoBasic;
class stoType;
class stoMapper;
class stoDataTemplateManager;

using stoSchemacoPrg = coPrg<stoSchema>;
using stoSchemacoPrgcoStack = coStack<stoSchemacoPrg>;
using utStringstoSchemaObjectPtrcoTable = coTable<utString, stoSchemaObject const*>;
using stoSchemacoSetPtrcoPtr = coPtr<stoSchema const>;

// One node of the registry's list of existing schemas; does not own its schema.
class stoSchemaLink {
    STO_PERSISTENT(stoSchemaLink)
public:
    stoSchemaLink(stoSchema* schema, stoSchemaLink* next) : m_next(next), m_schema(schema) {}
    virtual ~stoSchemaLink() = default;
    stoSchemaLink* next() const { return m_next; }
    stoSchema* schema() const { return m_schema; }

protected:
    friend class stoSystem;
    stoSchemaLink() : m_next(nullptr), m_schema(nullptr) {}

    stoSchemaLink* m_next;
    stoSchema* m_schema;
};
STO_DECLARE_CLASS(stoSchemaLink)

class stoSystem : public stoStubbable {
    STO_PERSISTENT(stoSystem)
public:
    stoSystem();
    virtual ~stoSystem();

    stoValue* create_stub() const override;
    stoRawPtr stub_parent() const override;
    stoRawPtr stub_id() const override;

    // Only the schema constructors and destructor call these.
    void add_schema(stoSchema* schema);
    void remove_schema(stoSchema* schema);

    // Takes ownership of a compiled-in schema and marks it in memory.
    stoSchema* save(stoSchema* schema);
    // First in-memory schema of that name; the version is not compared.
    stoSchema* find_in_memory_schema(stoSchemaID const& id) const;
    // First schema, saved or loaded, of that name and version.
    stoSchema const* find_loaded_schema(stoSchemaID const& id) const;
    stoDataTemplateManager* data_template_manager();

    int version() const { return m_version; }
    stoSchemaLink const* schema_chain() const { return m_schema_chain; }

protected:
    int m_version;
    stoSchemacoPrgcoStack m_saved_schemas;
    stoSchemaLink* m_schema_chain;
    stoDataTemplateManager* m_data_template_manager;
};
STO_DECLARE_CLASS(stoSystem)

class stoSchema : public stoStubbable {
    STO_PERSISTENT(stoSchema)
public:
    stoSchema(utString const& name, int version);
    virtual ~stoSchema();

    stoValue* create_stub() const override;
    stoRawPtr stub_parent() const override;
    stoRawPtr stub_id() const override;

    int operator==(stoSchema const& other) const { return m_schema_id == other.m_schema_id; }
    int operator!=(stoSchema const& other) const { return !(*this == other); }

    // The named type of this schema with that name, or null. Hits are cached.
    stoSchemaObject const* look_up_object(utString name) const;
    // Completes the flattened member table of every class of the schema.
    void finish() const;

    int in_memory() const { return m_in_memory; }
    utString name() const { return m_schema_id.name(); }
    int version() const { return m_schema_id.version(); }
    stoSchemaID const& schema_id() const { return m_schema_id; }
    stoSystem* system() const { return m_system; }

    stoSchemaTypeBinding const* first_binding() const;
    stoSchemaTypeBinding const* last_binding() const { return m_last_binding; }
    stoUnnamedType const* first_unnamed_type() const { return m_unnamed_type_chain; }
    stoSchemaMapperBinding const* first_mapper_binding() const;

protected:
    friend class stoSystem;
    friend class stoBasic;
    friend class stoIntType;
    friend class stoClass;
    friend class stoMapper;
    friend class stoBuilder;
    friend class stoSchemaTypeBinding;
    friend class stoSchemaMapperBinding;

    // A schema about to be rebuilt from a file.
    stoSchema();
    stoSchema(stoSchema const&) = delete;
    stoSchema& operator=(stoSchema const&) = delete;

    // Appends a type binding for a named type: a basic type or a class.
    void add_basic(stoType* type, stoSchemaObject const* object);
    void add_mapper(stoMapper* mapper);
    void add_unnamed_type(stoTypeHandle const& type);
    static stoSchemaBinding** find_tail(stoSchemaBinding** place);

    stoSystem* m_system;
    stoSchemaID m_schema_id;
    stoSchemaTypeBinding* m_last_binding;
    // The chains are typed by their common base so that the tail can name
    // either the head or a binding's next field.
    stoSchemaBinding* m_binding_chain;
    stoSchemaBinding** m_binding_tail;
    stoUnnamedType* m_unnamed_type_chain;
    mutable utStringstoSchemaObjectPtrcoTable m_object_table;
    stoSchemaBinding* m_mapper_chain;
    stoSchemaMapperBinding* m_last_mapper_binding;
    stoSchemaBinding** m_mapper_tail;
    int m_in_memory;
};
STO_DECLARE_CLASS(stoSchema)

// Base of every named object of a schema: basic types, classes, mappers.
class stoSchemaObject : public stoStubbable {
    STO_PERSISTENT(stoSchemaObject)
public:
    stoSchemaObject(stoSchema* schema, utString const& name) : m_schema(schema), m_name(name) {}

    stoValue* create_stub() const override;
    stoRawPtr stub_parent() const override;
    stoRawPtr stub_id() const override;

    // Same schema object and equal names.
    // Most comparisons (casts along bases, type checks) meet the very same
    // object; the names are compared only for twins.
    int operator==(stoSchemaObject const& other) const
    {
        return this == &other || (m_schema == other.m_schema && m_name == other.m_name);
    }
    int operator!=(stoSchemaObject const& other) const { return !(*this == other); }

    utString name() const { return m_name; }
    utString const& name_ref() const { return m_name; }
    stoSchema* schema() const { return m_schema; }

protected:
    stoSchemaObject() : m_schema(nullptr), m_name("<unset>") {}
    virtual ~stoSchemaObject() = default;

    stoSchema* m_schema;
    utString m_name;
};
STO_DECLARE_CLASS(stoSchemaObject)

// Walks a schema's named types in the order they were added.
class stoSchemaIT {
public:
    explicit stoSchemaIT(stoSchema const* schema) : m_schema(schema), m_binding(nullptr), m_started(0) {}
    int operator++();
    stoSchemaObject const* operator()() const;
    stoSchemaTypeBinding const* binding() const { return m_binding; }

private:
    stoSchema const* m_schema;
    stoSchemaTypeBinding const* m_binding;
    int m_started;
};

stoSystem* sto_system();
stoSchema* sto_schema_sto_schema();
// Registers the store's own classes, so that files naming them can be read.
void sto_force_load();
// Completes the member tables of the value classes.
void sto_finish_values();

unsigned int co_hash(stoSchema const& schema);
unsigned int co_hash(stoSchemacoSetPtrcoPtr const& schema);
