#include "evolution/type_synthesiser.h"

#include "support/exceptions.h"
#include "types/basic.h"
#include "types/binding.h"
#include "types/class.h"
#include "types/system.h"
#include "values/mapper.h"
#include "values/pointer_types.h"
#include "values/value.h"

#include <cstring>

stoTypeSynthesiser::~stoTypeSynthesiser()
{
    for (stoRawPtr const& made : m_made)
        if (!made.type().is_null())
            made.type()->destroy(const_cast<void*>(made.ptr()));
}

stoSchema const* stoTypeSynthesiser::find_schema(stoSchemaID const& id) { return sto_system()->find_loaded_schema(id); }

stoRawPtr stoTypeSynthesiser::make_object(stoValue const* value)
{
    if (!value || value->type_ref().is_null())
        return stoRawPtr();
    stoTypeHandle type = value->type();
    void* object = type->create();
    if (!object)
        return stoRawPtr();
    stoRawPtr made(type, object, type->size());
    m_made.add(made);
    value_to_raw(value, stoRWRawPtr(type, object, type->size()));
    return made;
}

void stoTypeSynthesiser::find_stub(stoTypeHandle const& type, void* out, stoStub const* stub)
{
    stoTypeOwner pointer(stoPtrType::make(type));
    look_up_stub(stoRWRawPtr(pointer, out, pointer->size()), stub);
}

namespace {

template <class T>
T const* view(stoRawPtr const& made)
{
    if (made.type().is_null() || !made.ptr())
        return nullptr;
    stoObjectPtr o = made.type()->sto_object();
    stoClass const* cls = stoClass::sto_dynamic_cast(o.type(), o.ptr());
    if (!cls)
        return nullptr;
    return T::sto_dynamic_cast(cls, made.ptr());
}

}  // namespace

void stoTypeSynthesiser::look_up_stub(stoRWRawPtr const& slot, stoStub const* stub)
{
    stoPtrType const* slot_type = dynamic_cast<stoPtrType const*>(slot.type().type());
    if (!slot_type || !stub || stub->type_ref().is_null())
        return;
    stoRawPtr id = make_object(stub->id());
    stoStub const* parent = dynamic_cast<stoStub const*>(stub->parent());
    stoObjectPtr o = stub->type()->sto_object();
    stoClass const* target = stoClass::sto_dynamic_cast(o.type(), o.ptr());
    if (!target)
        return;

    // Written through the slot type's copy, as any pointer field is: a
    // type-handle field receives the handle, any other field the object's
    // part of the field's class.
    auto write = [&](void const* address, stoTypeHandle const& handle) {
        if (slot_type->sto_dynamic_class() == sto_class_stoTypeHandleType()) {
            slot_type->copy(&handle, slot.write_ptr());
        } else {
            stoObjectPtr whole = static_cast<stoStubbable const*>(address)->sto_object();
            void const* part = view_as(*slot_type->pointee_type(), *whole.type(), whole.ptr());
            slot_type->copy(&part, slot.write_ptr());
        }
    };

    utString const* name = id.type() == sto_type_utString() ? static_cast<utString const*>(id.ptr()) : nullptr;
    // Classes, basic types and mappers are named within their schema, the
    // stub's parent.
    auto parent_schema = [&]() -> stoSchema* {
        stoSchema* schema = nullptr;
        if (parent)
            find_stub(sto_type_stoSchema(), &schema, parent);
        return name ? schema : nullptr;
    };

    if (target->is_compatible_with(sto_type_stoSystem())) {
        write(static_cast<stoStubbable const*>(sto_system()), stoTypeHandle());
    } else if (target->is_compatible_with(sto_type_stoSchema())) {
        stoSystem* system = nullptr;
        if (parent)
            find_stub(sto_type_stoSystem(), &system, parent);
        stoSchemaID const* schema_id = view<stoSchemaID>(id);
        if (!schema_id)
            return;
        stoSchema const* schema = find_schema(*schema_id);
        if (!schema)
            throw new stoMissingSchemaException(*schema_id);
        write(static_cast<stoStubbable const*>(schema), stoTypeHandle());
    } else if (target->is_compatible_with(sto_type_stoClass()) || target->is_compatible_with(sto_type_stoBasic()) ||
               *target == *sto_class_stoByteArrayType()) {
        int is_class = target->is_compatible_with(sto_type_stoClass());
        stoSchema* schema = parent_schema();
        if (!schema)
            return;
        stoSchemaObject const* found = schema->look_up_object(*name);
        stoObjectPtr fo = found ? found->sto_object() : stoObjectPtr();
        if (is_class) {
            stoClass const* cls = found ? stoClass::sto_dynamic_cast(fo.type(), fo.ptr()) : nullptr;
            if (!cls)
                throw new stoMissingClassException(stoSchemaID(schema->name(), schema->version()), *name);
            write(static_cast<stoStubbable const*>(cls), cls->handle());
        } else {
            stoBasic const* basic = found ? dynamic_cast<stoBasic const*>(found) : nullptr;
            if (basic)
                write(static_cast<stoStubbable const*>(basic), basic->handle());
        }
    } else if (target->is_compatible_with(sto_type_stoMapper())) {
        stoSchema* schema = parent_schema();
        if (!schema)
            return;
        stoMapper const* mapper = dynamic_cast<stoMapper const*>(schema->look_up_object(*name));
        if (!mapper) {
            // Mappers are not named types, and a generated mapper usually
            // shares its name with its own class: look along the mapper chain.
            for (stoSchemaMapperBinding const* b = schema->first_mapper_binding(); b && !mapper; b = b->next())
                if (b->mapper() && b->mapper()->name_ref() == *name)
                    mapper = b->mapper();
        }
        if (mapper)
            write(static_cast<stoStubbable const*>(mapper), stoTypeHandle());
    } else if (target->is_compatible_with(sto_type_stoMember())) {
        stoClass* owner = nullptr;
        if (parent)
            find_stub(sto_type_stoClass(), &owner, parent);
        if (!owner || !name)
            return;
        if (stoMember const* member = find_class_member(owner, *name))
            write(static_cast<stoStubbable const*>(member), stoTypeHandle());
    }
}

stoMember const* find_class_member(stoClass const* owner, utString const& name)
{
    if (!owner)
        return nullptr;
    stoClassMemberIT it(owner);
    while (++it)
        if (std::strcmp(it()->name_ref().c_str(), name.c_str()) == 0)
            return it();
    return nullptr;
}

void const* stoTypeSynthesiser::view_as(stoType const& pointee, stoType const& type, void const* object) const
{
    if (void const* part = stoSynthesiser::view_as(pointee, type, object))
        return part;
    stoObjectPtr t = type.sto_object();
    stoObjectPtr p = pointee.sto_object();
    stoClass const* cls = stoClass::sto_dynamic_cast(t.type(), t.ptr());
    stoClass const* target = stoClass::sto_dynamic_cast(p.type(), p.ptr());
    if (!cls || !target || *cls != *sto_class_stoByteArrayType())
        return nullptr;
    return stoByteArrayType::view_as(target, object);
}
