#include "values/synthesiser.h"

#include "support/exceptions.h"
#include "types/class.h"
#include "values/mapper.h"
#include "values/pointer_types.h"
#include "values/value.h"


// -------------------------------------------------------- stoSynthesiseFake

stoSynthesiseFake::stoSynthesiseFake(stoClassMapper const* mapper, stoObjectPtr const& real)
    : m_mapper(mapper), m_real(real), m_fake_class(mapper->model_class(real.type())), m_fake(nullptr), m_updated(0)
{
    m_fake = m_fake_class ? m_fake_class->create() : nullptr;
}

stoSynthesiseFake::~stoSynthesiseFake()
{
    try {
        update();
    } catch (stoException* e) {
        // A failed final update is silent: the synthesiser is going away.
        delete e;
    }
    if (m_fake)
        m_fake_class->destroy(m_fake);
}

void stoSynthesiseFake::update()
{
    if (m_updated || !m_fake)
        return;
    // Marked only once the copy went through: a copy that failed is tried
    // again by the next update (the last one comes with the destructor).
    m_mapper->model_to_opaque(fake(), m_real);
    m_updated = 1;
}

// ----------------------------------------------------------- stoSynthesiser

stoSynthesiser::stoSynthesiser() : m_in_memory_required(1) {}

stoSynthesiser::~stoSynthesiser()
{
    // Last started first: nested fakes complete before those that contain them.
    for (int i = m_fakes.size() - 1; i >= 0; --i)
        m_fakes[i].reset();
}

void stoSynthesiser::handle_stub(stoStub const*, stoRWRawPtr const&) {}

void stoSynthesiser::look_up_stub(stoRWRawPtr const&, stoStub const*) {}

stoObjectPtr stoSynthesiser::start_fake(stoClassMapper const* mapper, stoObjectPtr const& real)
{
    m_fakes.append(std::make_unique<stoSynthesiseFake>(mapper, real));
    return m_fakes[m_fakes.size() - 1]->fake();
}

void stoSynthesiser::end_fake(stoClassMapper const*, stoObjectPtr const&, stoObjectPtr const&) {}

void stoSynthesiser::synthesise(stoValue const* value, stoRWRawPtr const& p)
{
    value_to_raw(value, p);
    clean_up();
}

void stoSynthesiser::synthesise(stoValue const* value, void* address)
{
    value_to_raw(value, address);
    clean_up();
}

void stoSynthesiser::value_to_raw(stoValue const* value, void* address)
{
    if (!value)
        return;
    stoTypeHandle const& type = value->type_ref();
    value_to_raw(value, stoRWRawPtr(type, address, type.is_null() ? 0 : type->size()));
}

void stoSynthesiser::value_to_raw(stoValue const* value, stoRWRawPtr const& p)
{
    if (!value || !p.write_ptr() || p.type().is_null())
        return;
    // Only objects, and instances of types that plain pointers point at, are
    // pointed at; other values need no address of their own. The entry tells
    // whether fields wait in m_pending, so that the objects nothing waits
    // for, nearly all, cost one look-up.
    bool waited = false;
    stoType const* type = value->type_ref().type();
    bool object = value->is_object();
    if (object || (type && type->is_plain_pointee())) {
        // A file can put a value of one type where another is expected. The
        // memory is then never taken as the value's address: pointers to it
        // would view it as the wrong type. An object's members are not
        // written there either; a number is still converted into the field.
        bool same = type == p.type().type() || (type && *type == *p.type());
        if (!same && object)
            return;
        if (same) {
            void*& entry = m_objects[value];
            waited = entry == waiting_mark();
            entry = p.write_ptr();
        }
    }
    if (waited) {
        m_pending.take(value, [&](stoPendingField const& waiting) {
            stoPtrType const* pointer_type = waiting.type;
            void const* cast = view_as(*pointer_type->pointee_type(), *value->type(), p.write_ptr());
            pointer_type->point_at_object(waiting.field, const_cast<void*>(cast));
        });
    }
    if (value->is_stub()) {
        handle_stub(static_cast<stoStub const*>(value), p);
        return;
    }
    p.type()->value_to_raw(this, value, p);
}

void stoSynthesiser::handle_smart_pointer(stoPtrValue const* value, stoRWRawPtr const& field)
{
    if (stoPtrType const* type = dynamic_cast<stoPtrType const*>(field.type().type()))
        handle_smart_pointer(value, field, type);
}

void stoSynthesiser::handle_smart_pointer(stoPtrValue const* value, stoRWRawPtr const& field, stoPtrType const* type)
{
    stoValue const* target = value ? value->pointee() : nullptr;
    if (!target) {
        type->point_at_object(field.write_ptr(), nullptr);
        return;
    }
    if (target->is_stub()) {
        look_up_stub(field, static_cast<stoStub const*>(target));
        return;
    }
    stoClass const* meta = type->sto_dynamic_class();
    if (meta == sto_class_stoPtrType() || meta == sto_class_stoTypeHandleType()) {
        mark_ptr(type, target, field.write_ptr());
        return;
    }
    if (void* const* existing = m_objects.find(target); existing && *existing != waiting_mark()) {
        // A second owning or counted pointer to one object: a counted field
        // shares the first field's count; an owning field stays as it is.
        void* const* first_field = m_owners.find(*existing);
        if (!first_field || meta != sto_class_stoPrfType())
            return;
        // The count is shared; the address is this field's own view of the
        // object, which differs from the first field's when the two point
        // at different bases of it.
        void const* cast = view_as(*type->pointee_type(), *target->type(), *existing);
        if (!cast)
            return;
        stoPrf* shared = static_cast<stoPrf*>(field.write_ptr());
        *shared = *static_cast<stoPrf const*>(*first_field);
        shared->set_pointer(const_cast<void*>(cast));
        return;
    }
    stoTypeHandle const& target_type = target->type_ref();
    void* object = target_type->create();
    if (!object)
        return;
    void const* cast = view_as(*type->pointee_type(), *target_type, object);
    if (!cast) {
        // The value's class is not a kind of the pointer's class.
        target_type->destroy(object);
        return;
    }
    // The field owns the object before its contents are written, so that a
    // failure part-way leaves it with an owner.
    type->point_at_object(field.write_ptr(), const_cast<void*>(cast));
    // Only a counted field is ever copied into a later field: copying an
    // owning one does nothing, and reading it as a counted pointer would be
    // wrong. Owned objects are most of a document, so leaving them out keeps
    // this table small.
    if (meta != sto_class_stoPrgType())
        m_owners[object] = field.write_ptr();
    register_new_object(value, field);
    value_to_raw(target, stoRWRawPtr(target_type, object, target_type->size()));
}

void const* stoSynthesiser::view_as(stoType const& pointee, stoType const& type, void const* object) const
{
    // Objects are made as the class of their value, so a view of one as that
    // same class is the object itself; that is the common case by far.
    if (&pointee == &type)
        return object;
    return pointee.cast(type, object);
}

void stoSynthesiser::mark_ptr(stoPtrType const* type, stoValue const* target, void* field)
{
    void*& address = m_objects[target];
    if (address && address != waiting_mark()) {
        void const* cast = view_as(*type->pointee_type(), *target->type(), address);
        type->point_at_object(field, const_cast<void*>(cast));
        return;
    }
    address = waiting_mark();
    m_pending.add(target, stoPendingField{type, field});
}

void stoSynthesiser::prefetch(stoValue const* v) const
{
    if (!v)
        return;
    if (v->is_pointer()) {
        if (stoValue const* target = static_cast<stoPtrValue const*>(v)->pointee()) {
            __builtin_prefetch(target);
            m_objects.prefetch(target);
        }
        m_objects.prefetch(v);
    } else if (v->is_object()) {
        m_objects.prefetch(v);
    }
}

void stoSynthesiser::register_new_object(stoValue const* value, stoRWRawPtr const& p)
{
    m_objects[value] = p.write_ptr();
}

void stoSynthesiser::clean_up()
{
    for (int i = m_fakes.size() - 1; i >= 0; --i)
        m_fakes[i]->update();
}

void* stoSynthesiser::object_of(stoValue const* value) const
{
    void* const* address = m_objects.find(value);
    return address && *address != waiting_mark() ? *address : nullptr;
}
