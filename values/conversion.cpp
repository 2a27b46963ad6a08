// Conversion between live memory and values for every kind of type: basic
// types, classes (through their mappers), arrays and pointers, and the stubs
// of the store's stubbable objects.
//
// The synthesiser writes with the type that the live memory is declared
// with, and each kind checks the value it is given: a value of the wrong
// kind (from a damaged file, say) leaves the memory untouched.
#include "support/exceptions.h"
#include "types/array.h"
#include "types/basic.h"
#include "types/class.h"
#include "types/schema_id.h"
#include "types/system.h"
#include "values/analyser.h"
#include "values/mapper.h"
#include "values/pointer_types.h"
#include "values/synthesiser.h"
#include "values/value.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

// How many elements ahead array loops ask for the memory of an element.
// Each element's analysis takes far longer than a miss, so a short distance
// is enough, and keeps what was loaded from being evicted before use.
constexpr int kPrefetchAhead = 2;

// The store's value classes are tagged with their kind, which is cheaper to
// test than a dynamic cast in loops that meet every value.
template <class V>
V const* as(stoValue const* v, stoValue::Kind kind)
{
    return v && v->kind() == kind ? static_cast<V const*>(v) : nullptr;
}

template <class V>
stoValue* registered(stoAnalyser* analyser, V* value, stoRawPtr const& p)
{
    analyser->register_new_value(value, p);
    analyser->completed_value(value, p);
    return value;
}

char const* at(void const* p, long long offset) { return static_cast<char const*>(p) + offset; }
char* at(void* p, long long offset) { return static_cast<char*>(p) + offset; }

}  // namespace

// -------------------------------------------------------------- basic types

stoValue* stoIntType::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    return registered(analyser, new stoIntValue(stoIntValue64Tag, raw_to_int(p)), p);
}

void stoIntType::value_to_raw(stoSynthesiser*, stoValue const* value, stoRWRawPtr const& p) const
{
    if (stoIntValue const* v = as<stoIntValue>(value, stoValue::kIntKind))
        int_to_raw(v->value64(), p);
}

stoValue* stoDoubleType::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    return registered(analyser, new stoDoubleValue(raw_to_double(p)), p);
}

void stoDoubleType::value_to_raw(stoSynthesiser*, stoValue const* value, stoRWRawPtr const& p) const
{
    if (stoDoubleValue const* v = as<stoDoubleValue>(value, stoValue::kDoubleKind))
        double_to_raw(v->value(), p);
}

stoValue* stoStringType::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    return registered(analyser, new stoStringValue(*static_cast<utString const*>(p.ptr())), p);
}

void stoStringType::value_to_raw(stoSynthesiser*, stoValue const* value, stoRWRawPtr const& p) const
{
    utString* target = static_cast<utString*>(p.write_ptr());
    if (!value) {
        *target = utString("");
        return;
    }
    if (stoStringValue const* v = as<stoStringValue>(value, stoValue::kStringKind))
        *target = v->value_ref();
}

stoValue* stoByteArrayType::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    return registered(analyser, new stoByteArrayValue(*static_cast<stoByteArray const*>(p.ptr())), p);
}

void stoByteArrayType::value_to_raw(stoSynthesiser*, stoValue const* value, stoRWRawPtr const& p) const
{
    if (stoByteArrayValue const* v = as<stoByteArrayValue>(value, stoValue::kByteArrayKind))
        *static_cast<stoByteArray*>(p.write_ptr()) = v->value();
}

// ------------------------------------------------------------------ classes

void stoClass::value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const
{
    if (synthesiser->in_memory_required() && m_schema && !m_schema->in_memory())
        throw new stoSchemaNotInMemoryException(stoSchemaID(m_schema->name(), m_schema->version()));
    m_mapper->value_to_raw(synthesiser, value, p);
}

stoValue* stoStandardMapper::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    stoClass const* cls = static_cast<stoClass const*>(p.type().type());
    stoMemberInstance const* table = cls->inherited_member_table();
    stoObject* object = new stoObject(cls);
    analyser->register_new_value(object, p);
    int n = cls->number_of_inherited_members();
    // The entries of embedded objects and the targets of pointers are
    // scattered; asking for all of them first overlaps their misses.
    for (int i = 0; i < n; ++i) {
        stoMember const* m = table[i].member();
        stoType const* type = m->type().type();
        if (type->is_class())
            analyser->prefetch(stoRawPtr(m->type(), at(p.ptr(), table[i].offset()), m->size()), nullptr);
        else if (stoPtrType const* pointer_type = analyser->pointer_type_cached(type))
            analyser->prefetch(stoRawPtr(m->type(), at(p.ptr(), table[i].offset()), m->size()), pointer_type);
    }
    for (int i = 0; i < n; ++i) {
        stoMemberInstance const& entry = table[i];
        stoMember const* m = entry.member();
        stoRawPtr member(m->type(), at(p.ptr(), entry.offset()), m->size());
        object->set_member_at(i, analyser->raw_to_value(member));
    }
    analyser->completed_value(object, p);
    return object;
}

void stoStandardMapper::value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const
{
    stoObject const* object = as<stoObject>(value, stoValue::kObjectKind);
    stoClass const* cls = static_cast<stoClass const*>(p.type().type());
    // The live object's class is the value's class; anything else would
    // write one class's members into another's memory.
    if (!object || !object->type() || (object->type() != cls && *object->type() != *cls))
        return;
    stoMemberInstance const* table = cls->inherited_member_table();
    int n = std::min(cls->number_of_inherited_members(), object->number_of_children());
    // The targets of pointer members are scattered; asking for all of them
    // first overlaps their misses.
    for (int i = 0; i < n; ++i)
        synthesiser->prefetch(object->member_at(i));
    for (int i = 0; i < n; ++i) {
        stoValue const* member_value = object->member_at(i);
        if (!member_value)
            continue;
        stoMemberInstance const& entry = table[i];
        stoMember const* m = entry.member();
        synthesiser->value_to_raw(member_value, stoRWRawPtr(m->type(), at(p.write_ptr(), entry.offset()), m->size()));
    }
}

stoValue* stoClassMapper::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    stoClass const* opaque = static_cast<stoClass const*>(p.type().type());
    stoClass const* model_cls = model_class(opaque);
    stoMemberInstance const* table = model_cls->inherited_member_table();
    void* model = model_cls->create();
    struct ModelGuard {
        stoClass const* cls;
        void* object;
        ~ModelGuard() { cls->destroy(object); }
    } guard{model_cls, model};
    opaque_to_model(stoObjectPtr(opaque, p.ptr()), stoObjectPtr(model_cls, model));

    stoObject* object = new stoObject(opaque);
    analyser->register_new_value(object, p);
    stoRawPtr model_ptr(model_cls->handle(), model, model_cls->size());
    {
        stoAnalyser nested(analyser);
        nested.register_new_value(object, model_ptr);
        // The opaque class declares the model's members, so the slots match.
        int n = std::min(model_cls->number_of_inherited_members(), object->number_of_children());
        for (int i = 0; i < n; ++i) {
            stoMember const* m = table[i].member();
            stoRawPtr member(m->type(), at(model, table[i].offset()), m->size());
            object->set_member_at(i, nested.raw_to_value(member));
        }
        nested.completed_value(object, model_ptr);
    }
    analyser->completed_value(object, p);
    return object;
}

void stoClassMapper::value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const
{
    stoObject const* object = as<stoObject>(value, stoValue::kObjectKind);
    stoClass const* opaque = static_cast<stoClass const*>(p.type().type());
    if (!object)
        return;
    stoObjectPtr fake = synthesiser->start_fake(this, stoObjectPtr(opaque, p.write_ptr()));
    if (!fake.ptr())
        return;
    stoClass const* model_cls = fake.type();
    stoMemberInstance const* table = model_cls->inherited_member_table();
    int n = std::min(model_cls->number_of_inherited_members(), object->number_of_children());
    for (int i = 0; i < n; ++i) {
        stoValue const* member_value = object->member_at(i);
        if (!member_value)
            continue;
        stoMember const* m = table[i].member();
        synthesiser->value_to_raw(
            member_value, stoRWRawPtr(m->type(), at(const_cast<void*>(fake.ptr()), table[i].offset()), m->size()));
    }
    synthesiser->end_fake(this, fake, stoObjectPtr(opaque, p.write_ptr()));
}

namespace {

struct ContainerMembers {
    stoMemberHandle size;
    stoMemberHandle array;
    stoTypeHandle array_type;
    stoTypeHandle element_type;
};

ContainerMembers container_members(stoClass const* cls)
{
    ContainerMembers m;
    m.size = cls->find_member(cls->name(), "m_size");
    m.array = cls->find_member(cls->name(), "m_array");
    if (!m.array.invalid()) {
        m.array_type = cls->member(m.array)->type();
        if (stoArrayType const* a = dynamic_cast<stoArrayType const*>(m.array_type.type()))
            m.element_type = a->element_type();
    }
    return m;
}

}  // namespace

stoValue* stoContainerMapper::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    stoClass const* cls = static_cast<stoClass const*>(p.type().type());
    ContainerMembers members = container_members(cls);
    stoObject* object = new stoObject(cls);
    analyser->register_new_value(object, p);
    if (members.size.invalid() || members.element_type.is_null()) {
        analyser->completed_value(object, p);
        return object;
    }
    void* container = const_cast<void*>(p.ptr());
    int n = container_size(container);
    stoIntValue* count = new stoIntValue(n);
    object->set_member(members.size, count);
    stoRawPtr count_ptr(sto_type_int(), count_field(container), 4);
    analyser->register_new_value(count, count_ptr);
    analyser->completed_value(count, count_ptr);
    stoArrayValue* array = new stoArrayValue(members.array_type, n);
    object->set_member(members.array, array);
    stoRawPtr array_ptr(members.array_type, storage_field(container), static_cast<int>(sizeof(void*)));
    analyser->register_new_value(array, array_ptr);
    int element_size = members.element_type->size();
    stoPtrType const* pointers = stoAnalyser::pointer_type_of(members.element_type);
    for (int i = 0; i < n; ++i) {
        if (i + kPrefetchAhead < n)
            analyser->prefetch(
                stoRawPtr(members.element_type, element_address(container, i + kPrefetchAhead), element_size), pointers);
        array->set_element(i, analyser->raw_to_value(
                                  stoRawPtr(members.element_type, element_address(container, i), element_size)));
    }
    analyser->completed_value(array, array_ptr);
    analyser->completed_value(object, p);
    return object;
}

void stoContainerMapper::value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const
{
    stoObject const* object = as<stoObject>(value, stoValue::kObjectKind);
    stoClass const* cls = static_cast<stoClass const*>(p.type().type());
    if (!object)
        return;
    ContainerMembers members = container_members(cls);
    if (members.size.invalid() || members.array.invalid() || members.element_type.is_null())
        return;
    stoIntValue const* count = as<stoIntValue>(object->member(members.size), stoValue::kIntKind);
    stoArrayValue const* array = as<stoArrayValue>(object->member(members.array), stoValue::kArrayKind);
    if (!count || !array)
        return;
    // A count beyond the elements present would grow the container for nothing.
    long long n = std::min<long long>(count->value64(), array->number_of_elements());
    if (n < 0)
        n = 0;
    reset(p.write_ptr(), static_cast<int>(n));
    int element_size = members.element_type->size();
    for (int i = 0; i < n; ++i) {
        if (i + kPrefetchAhead < n)
            synthesiser->prefetch(array->element(static_cast<int>(i + kPrefetchAhead)));
        synthesiser->value_to_raw(array->element(i),
                                  stoRWRawPtr(members.element_type, element_address(p.write_ptr(), i), element_size));
    }
}

// ------------------------------------------------------------------- arrays

stoValue* stoFixedArrayType::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    stoArrayValue* value = new stoArrayValue(m_handle, m_n_elements);
    analyser->register_new_value(value, p);
    int element_size = m_type->size();
    stoPtrType const* pointers = stoAnalyser::pointer_type_of(m_type);
    for (int i = 0; i < m_n_elements; ++i) {
        if (i + kPrefetchAhead < m_n_elements)
            analyser->prefetch(
                stoRawPtr(m_type, at(p.ptr(), static_cast<long long>(i + kPrefetchAhead) * element_size), element_size),
                pointers);
        value->set_element(i, analyser->raw_to_value(stoRawPtr(m_type, at(p.ptr(), static_cast<long long>(i) * element_size),
                                                               element_size)));
    }
    analyser->completed_value(value, p);
    return value;
}

void stoFixedArrayType::value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const
{
    stoArrayValue const* array = as<stoArrayValue>(value, stoValue::kArrayKind);
    if (!array)
        return;
    int element_size = m_type->size();
    int n = std::min(array->number_of_elements(), m_n_elements);
    for (int i = 0; i < n; ++i) {
        if (i + kPrefetchAhead < n)
            synthesiser->prefetch(array->element(i + kPrefetchAhead));
        synthesiser->value_to_raw(array->element(i),
                                  stoRWRawPtr(m_type, at(p.write_ptr(), static_cast<long long>(i) * element_size), element_size));
    }
}

stoValue* stoVariableArrayType::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    void const* data = *static_cast<void* const*>(p.ptr());
    if (!data)
        return nullptr;
    int count = 0;
    if (data != unset_array() && m_array_size)
        count = std::max(0, m_array_size->array_size(m_member, p.ptr()));
    stoArrayValue* value = new stoArrayValue(m_handle, count);
    analyser->register_new_value(value, p);
    int element_size = m_type->size();
    stoPtrType const* pointers = stoAnalyser::pointer_type_of(m_type);
    for (int i = 0; i < count; ++i) {
        if (i + kPrefetchAhead < count)
            analyser->prefetch(
                stoRawPtr(m_type, at(data, static_cast<long long>(i + kPrefetchAhead) * element_size), element_size),
                pointers);
        value->set_element(i, analyser->raw_to_value(
                                  stoRawPtr(m_type, at(data, static_cast<long long>(i) * element_size), element_size)));
    }
    analyser->completed_value(value, p);
    return value;
}

void stoVariableArrayType::value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const
{
    stoArrayValue const* array = as<stoArrayValue>(value, stoValue::kArrayKind);
    if (!array)
        return;
    int n = array->number_of_elements();
    // The object's count must agree with the block, or whoever reads the
    // object goes past the block's end; a file can say otherwise. A count
    // member, written just before the array, takes the block's count. A
    // counting function whose inputs are already written cannot be changed:
    // when it asks for more elements than the file gives, the array stays
    // null.
    if (m_member && m_array_size) {
        if (stoOffsetArraySize const* offset = dynamic_cast<stoOffsetArraySize const*>(m_array_size)) {
            if (stoMember const* count = offset->size_member(); count && count->size() == sizeof(std::int32_t)) {
                std::int32_t c = n;
                std::memcpy(at(p.write_ptr(), count->offset() - m_member->offset()), &c, sizeof c);
            }
        } else if (m_array_size->array_size(m_member, p.write_ptr()) > n) {
            *static_cast<void**>(p.write_ptr()) = nullptr;
            return;
        }
    }
    void* block = m_type->create_array(n);
    *static_cast<void**>(p.write_ptr()) = block;
    synthesiser->register_new_object(value, p);
    if (!block)
        return;
    int element_size = m_type->size();
    for (int i = 0; i < n; ++i) {
        if (i + kPrefetchAhead < n)
            synthesiser->prefetch(array->element(i + kPrefetchAhead));
        synthesiser->value_to_raw(array->element(i),
                                  stoRWRawPtr(m_type, at(block, static_cast<long long>(i) * element_size), element_size));
    }
}

// ----------------------------------------------------------------- pointers

stoValue* stoPtrType::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    return analyser->handle_smart_pointer(p);
}

void stoPtrType::value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const
{
    stoPtrValue const* pointer = value && value->is_pointer() ? static_cast<stoPtrValue const*>(value) : nullptr;
    // Types write their values through their own value_to_raw, so this is
    // the field's type.
    if (pointer || !value)
        synthesiser->handle_smart_pointer(pointer, p, this);
}

stoPtrValue* stoPtrType::create_null() const { return new stoPtrValue(m_handle, nullptr); }
stoPtrValue* stoPrgType::create_null() const { return new stoPrgValue(m_handle, nullptr); }
stoPtrValue* stoPrfType::create_null() const { return new stoPrfValue(m_handle, stoValuecoPrf()); }
stoPtrValue* stoTypeHandleType::create_null() const { return new stoTypeHandleValue(m_handle, nullptr); }

// -------------------------------------------------------------------- stubs

stoValue* stoSchemaID::create_stub() const
{
    stoAnalyser analyser;
    return analyser.raw_to_value(stoRawPtr(sto_object()));
}

stoValue* stoSystem::create_stub() const
{
    return new stoStub(sto_type_stoSystem(), nullptr, new stoIntValue(m_version));
}

stoValue* stoSchema::create_stub() const
{
    return new stoStub(sto_type_stoSchema(), nullptr, m_schema_id.create_stub());
}

stoValue* stoSchemaObject::create_stub() const
{
    return new stoStub(sto_type(), m_schema ? m_schema->create_stub() : nullptr, new stoStringValue(m_name));
}

stoValue* stoMember::create_stub() const
{
    return new stoStub(sto_type_stoMember(), m_class ? m_class->create_stub() : nullptr, new stoStringValue(m_name));
}

void sto_delete_stub_chain(stoValue const* stub)
{
    while (stub) {
        stoStub const* s = dynamic_cast<stoStub const*>(stub);
        stoValue const* parent = s ? s->parent() : nullptr;
        delete stub;
        stub = parent;
    }
}
