// The type synthesiser: the synthesiser used while the type records of a
// file become live meta objects. It resolves each stub (a value that names a
// system, schema, class, basic type, mapper or member by its identity and
// its parent's stub) to the live object among the schemas the system knows,
// and reports a schema or class that cannot be found.
//
// Schemas are looked up by name and version through `find_schema`, which a
// proxy variant overrides to load old schemas from schema files.
#pragma once

#include "platform/co_containers.h"
#include "platform/ut_string.h"
#include "types/schema_id.h"
#include "values/raw_ptr.h"
#include "values/synthesiser.h"

class stoClass;
class stoMember;
class stoSchema;
class stoStub;
class stoValue;

using stoRawPtrcoSet = coSet<stoRawPtr>;

class stoTypeSynthesiser : public stoSynthesiser {
public:
    stoTypeSynthesiser() = default;
    // Destroys every identifying object it made.
    ~stoTypeSynthesiser() override;

    // Resolves the stub and writes the object it names into the pointer
    // field `slot` describes: an address for a plain pointer field, a type
    // handle for a type-handle field. Throws stoMissingSchemaException or
    // stoMissingClassException when the schema or class does not exist.
    void look_up_stub(stoRWRawPtr const& slot, stoStub const* stub) override;

    // Resolves a parent stub into a pointer variable to an object of `type`.
    void find_stub(stoTypeHandle const& type, void* out, stoStub const* stub);
    // A new live object of the value's type filled from the value; empty for null.
    stoRawPtr make_object(stoValue const* value);

    // Sees the byte-array type as the basic type and schema object it is.
    void const* view_as(stoType const& pointee, stoType const& type, void const* object) const override;

protected:
    virtual stoSchema const* find_schema(stoSchemaID const& id);

    stoRawPtrcoSet m_made;
};

// The synthesiser a reader makes for itself when given none.
class stoReadTypeSynthesiser : public stoTypeSynthesiser {
public:
    stoReadTypeSynthesiser() = default;
};

// The first member that `owner` itself declares with that name; null if none.
stoMember const* find_class_member(stoClass const* owner, utString const& name);
