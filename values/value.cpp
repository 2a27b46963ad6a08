#include "values/value.h"

#include "support/exceptions.h"
#include "support/memory_pool.h"
#include "types/class.h"
#include "types/describe.h"
#include "values/mapper.h"
#include "values/visitors.h"

#include <cstring>
#include <limits>
#include <new>

stoMemoryPool* stoValue::s_sto_pool = nullptr;

stoValue::~stoValue() = default;

namespace {

void* allocate_value(std::size_t size)
{
    stoMemoryPool* pool = stoValue::sto_memory_pool();
    if (void* p = pool ? pool->bump(size) : nullptr)
        return p;
    return sto_value_allocate(pool, size);
}

}  // namespace

void* stoValue::operator new(std::size_t size) { return allocate_value(size); }

void stoValue::operator delete(void* p) { sto_value_deallocate(s_sto_pool, p); }

namespace {

// Slot arrays come from the value allocator too, so that a pooled graph
// keeps its slots in its blocks; they start empty.
stoValue** make_slots(int n)
{
    std::size_t count = static_cast<std::size_t>(n > 0 ? n : 1);
    void* memory = allocate_value(count * sizeof(stoValue*));
    return static_cast<stoValue**>(std::memset(memory, 0, count * sizeof(stoValue*)));
}

// Slots of a value filled as a persistent object were made by the owning
// pointer type's create_array, and go back the way they came.
void delete_slots(stoValue** slots, int n, int from_type)
{
    if (!slots)
        return;
    for (int i = 0; i < n; ++i)
        delete slots[i];
    if (from_type)
        delete[] reinterpret_cast<void**>(slots);
    else
        sto_value_deallocate(stoValue::sto_memory_pool(), slots);
}

void add_children(stoValue const* self, stoValue* const* slots, int n, stoValuePtrcoSet& set)
{
    if (set.add(self) != nullptr)
        return;
    for (int i = 0; i < n; ++i)
        if (slots[i])
            slots[i]->participants(set);
}

}  // namespace

// ------------------------------------------------------------- basic values

int stoIntValue::process(stoProcessValue* p) const { return p->process_stoIntValue(this); }
void stoIntValue::participants(stoValuePtrcoSet& set) const { set.add(this); }

int stoIntValue::value() const
{
    if (m_value < std::numeric_limits<int>::min() || m_value > std::numeric_limits<int>::max())
        throw new stoIntTooBigException();
    return static_cast<int>(m_value);
}

int stoDoubleValue::process(stoProcessValue* p) const { return p->process_stoDoubleValue(this); }
void stoDoubleValue::participants(stoValuePtrcoSet& set) const { set.add(this); }

int stoStringValue::process(stoProcessValue* p) const { return p->process_stoStringValue(this); }
void stoStringValue::participants(stoValuePtrcoSet& set) const { set.add(this); }

int stoByteArrayValue::process(stoProcessValue* p) const { return p->process_stoByteArrayValue(this); }
void stoByteArrayValue::participants(stoValuePtrcoSet& set) const { set.add(this); }

// ---------------------------------------------------------------- stoObject

stoObject::stoObject(stoClass const* cls)
    : stoValue(cls->handle()), m_class(cls), m_member_values(make_slots(cls->number_of_inherited_members()))
{
    m_kind = kObjectKind;
}

stoObject::~stoObject() { delete_slots(m_member_values, number_of_children(), m_slots_from_type); }

int stoObject::process(stoProcessValue* p) const { return p->process_stoObject(this); }

int stoObject::number_of_children() const { return m_class ? m_class->number_of_inherited_members() : 0; }

void stoObject::participants(stoValuePtrcoSet& set) const
{
    add_children(this, m_member_values, number_of_children(), set);
}

stoValue const* stoObject::member(stoMemberHandle const& h) const { return m_member_values[h.index()]; }

void stoObject::set_member(stoMemberHandle const& h, stoValue* v) { m_member_values[h.index()] = v; }

stoValue* stoObject::release_member_at(int i)
{
    stoValue* v = m_member_values[i];
    m_member_values[i] = nullptr;
    return v;
}

int stoObject::inherited_members(void const* p)
{
    stoObject const* o = static_cast<stoObject const*>(p);
    return o->number_of_children();
}

// ------------------------------------------------------ array, mapped, stub

stoArrayValue::stoArrayValue(stoTypeHandle const& type, int n)
    : stoValue(type), m_n_elements(n > 0 ? n : 0), m_array(make_slots(n))
{
    m_kind = kArrayKind;
}

stoArrayValue::~stoArrayValue() { delete_slots(m_array, m_n_elements, m_slots_from_type); }

int stoArrayValue::process(stoProcessValue* p) const { return p->process_stoArrayValue(this); }

void stoArrayValue::participants(stoValuePtrcoSet& set) const { add_children(this, m_array, m_n_elements, set); }

stoValue* stoArrayValue::release_element(int i)
{
    stoValue* v = m_array[i];
    m_array[i] = nullptr;
    return v;
}

stoMappedValue::stoMappedValue(stoTypeHandle const& type, stoMapper const* mapper, int n)
    : stoValue(type), m_mapper(mapper), m_n_elements(n > 0 ? n : 0), m_array(make_slots(n))
{
    m_kind = kMappedKind;
}

stoMappedValue::~stoMappedValue() { delete_slots(m_array, m_n_elements, m_slots_from_type); }

int stoMappedValue::process(stoProcessValue* p) const { return p->process_stoMappedValue(this); }

void stoMappedValue::participants(stoValuePtrcoSet& set) const { add_children(this, m_array, m_n_elements, set); }

stoStub::~stoStub() { delete m_id; }

int stoStub::process(stoProcessValue* p) const { return p->process_stoStub(this); }

void stoStub::participants(stoValuePtrcoSet& set) const
{
    if (set.add(this) != nullptr)
        return;
    if (m_parent)
        m_parent->participants(set);
    if (m_id)
        m_id->participants(set);
}

// ----------------------------------------------------------- pointer values

int stoPtrValue::process(stoProcessValue* p) const { return p->process_stoPtrValue(this); }

void stoPtrValue::participants(stoValuePtrcoSet& set) const
{
    if (set.add(this) != nullptr)
        return;
    if (m_value)
        m_value->participants(set);
}

void stoPtrValue::set_pointee(stoValue* v) { m_value = v; }

void stoPtrValue::become_clone(stoPtrValue const* other) { m_value = other->m_value; }

int stoPrgValue::process(stoProcessValue* p) const { return p->process_stoPrgValue(this); }

void stoPrgValue::set_pointee(stoValue* v)
{
    stoPtrValue::m_value = v;
    m_value.release();
    m_value.reset(v);
}

void stoPrgValue::become_clone(stoPtrValue const*) {}

stoValue* stoPrgValue::release_pointee()
{
    stoPtrValue::m_value = nullptr;
    return m_value.release();
}

int stoPrfValue::process(stoProcessValue* p) const { return p->process_stoPrfValue(this); }

void stoPrfValue::set_pointee(stoValue* v)
{
    stoPtrValue::m_value = v;
    m_value = stoValuecoPrf(v);
}

void stoPrfValue::become_clone(stoPtrValue const* other)
{
    stoPtrValue::m_value = other->pointee();
    if (other->kind() == kPrfKind)
        m_value = static_cast<stoPrfValue const*>(other)->m_value;
}

int stoTypeHandleValue::process(stoProcessValue* p) const { return p->process_stoTypeHandleValue(this); }

void stoTypeHandleValue::become_clone(stoPtrValue const* other) { m_value = other->pointee(); }

// ------------------------------------------------------------ value handles

void stoValueHandle::become(utPtrClaimTag, stoValue* v)
{
    m_value = v;
    m_owner.reset(v);
}

stoValue* stoValueHandle::share() { return owns() ? release() : m_value; }

void stoValueHandle::set_pointee(stoPtrValue* p)
{
    // The kind tells the pointer classes apart as the store's cast would, at
    // no cost: every file reference passes through here.
    if (p->kind() == stoValue::kPrgKind) {
        static_cast<stoPrgValue*>(p)->set_pointee(release());
    } else if (p->kind() == stoValue::kPrfKind) {
        stoPrfValue* counted = static_cast<stoPrfValue*>(p);
        // Every counted pointer that receives the value through this handle
        // shares one count, so the value is deleted exactly once.
        if (m_counted.get() == m_value && m_value) {
            counted->set_counted(m_counted);
        } else if (owns()) {
            counted->set_pointee(release());
            m_counted = counted->counted();
        } else {
            // Ownership went to an owning pointer: point without owning.
            counted->stoPtrValue::set_pointee(m_value);
        }
    } else {
        p->set_pointee(m_value);
    }
}

// ------------------------------------------------------- iteration, utils

bool stoValueIT::operator++()
{
    int n = m_value->number_of_children();
    if (n == 0)
        return false;
    if (m_index < n) {
        ++m_index;
        return m_index < n;
    }
    m_index = 0;
    return true;
}

stoValue const* stoValueUtils::member_value(utString const& name, int& missing) const
{
    missing = 1;
    stoObject const* object = sto_as_object(m_value);
    if (!object || !object->type())
        return nullptr;
    stoClass const* cls = object->type();
    stoMemberHandle h = cls->find_member(cls->name(), name);
    if (h.invalid())
        return nullptr;
    missing = 0;
    return object->member(h);
}

void stoValueUtils::find_schema_name_version(utString& name, int& version) const
{
    int missing = 0;
    if (stoStringValue const* s = stoStringValue::sto_dynamic_cast(
            sto_class_stoValue(), member_value("m_name", missing)))
        name = s->value();
    if (stoIntValue const* i = stoIntValue::sto_dynamic_cast(sto_class_stoValue(), member_value("m_version", missing)))
        version = i->value();
}

stoObject const* sto_as_object(stoValue const* v)
{
    return v ? stoObject::sto_dynamic_cast(v->sto_dynamic_class(), v) : nullptr;
}

stoStub const* sto_as_stub(stoValue const* v) { return v ? stoStub::sto_dynamic_cast(v->sto_dynamic_class(), v) : nullptr; }

stoPtrValue const* sto_as_ptr(stoValue const* v)
{
    return v ? stoPtrValue::sto_dynamic_cast(v->sto_dynamic_class(), v) : nullptr;
}

// ------------------------------------------------------------ descriptions

STO_ABSTRACT_CLASS(stoValue, sto_schema_sto_schema())
{
    STO_MEMBER(m_type);
}

STO_CLASS(stoIntValue, sto_schema_sto_schema())
{
    STO_BASE(stoValue);
    STO_MEMBER(m_value);
}

STO_CLASS(stoDoubleValue, sto_schema_sto_schema())
{
    STO_BASE(stoValue);
    STO_MEMBER(m_value);
}

STO_CLASS(stoStringValue, sto_schema_sto_schema())
{
    STO_BASE(stoValue);
    STO_MEMBER(m_value);
}

STO_CLASS(stoByteArrayValue, sto_schema_sto_schema())
{
    STO_BASE(stoValue);
    STO_MEMBER(m_value);
}

STO_CLASS(stoObject, sto_schema_sto_schema())
{
    STO_BASE(stoValue);
    STO_MEMBER(m_class);
    STO_METHOD_ARRAY_AS(m_member_values, inherited_members,
                        sto_builder.build_unnamed_type(stoPrgType::make(sto_type_stoValue())));
}

STO_CLASS(stoArrayValue, sto_schema_sto_schema())
{
    STO_BASE(stoValue);
    STO_SIZED_ARRAY_AS(m_array, m_n_elements, sto_builder.build_unnamed_type(stoPrgType::make(sto_type_stoValue())));
}

STO_CLASS(stoMappedValue, sto_schema_sto_schema())
{
    STO_BASE(stoValue);
    STO_MEMBER(m_mapper);
    STO_SIZED_ARRAY_AS(m_array, m_n_elements, sto_builder.build_unnamed_type(stoPrgType::make(sto_type_stoValue())));
}

STO_CLASS(stoStub, sto_schema_sto_schema())
{
    STO_BASE(stoValue);
    STO_MEMBER(m_parent);
    STO_OWNING_PTR(m_id);
}

STO_CLASS(stoPtrValue, sto_schema_sto_schema())
{
    STO_BASE(stoValue);
    STO_MEMBER(m_value);
}

STO_CLASS(stoPrgValue, sto_schema_sto_schema())
{
    STO_BASE(stoPtrValue);
    STO_MEMBER(m_value);
}

STO_CLASS(stoPrfValue, sto_schema_sto_schema())
{
    STO_BASE(stoPtrValue);
    STO_MEMBER(m_value);
}

STO_CLASS(stoTypeHandleValue, sto_schema_sto_schema())
{
    STO_BASE(stoPtrValue);
}
