#include "values/analyser.h"

#include "types/class.h"
#include "types/system.h"
#include "values/pointer_types.h"
#include "values/stubbable.h"
#include "values/value.h"

#include <cstdlib>
#include <new>
#include <vector>

// ---------------------------------------------------------- live objects

namespace {

// Grown when more than 7 in 10 slots are taken: a look-up that misses then
// reads about three slots on average, one or two cache lines.
constexpr std::size_t kMaxLoadTenths = 7;
constexpr std::size_t kFirstSlots = 16;

}  // namespace

stoLiveObjectTable::~stoLiveObjectTable()
{
    std::free(m_slots);
    std::free(m_null);
}

stoTypeHandle stoLiveObjectTable::handle(stoType const* t) { return t ? t->handle() : stoTypeHandle(); }

int stoLiveObjectTable::same_type(stoType const* a, stoTypeHandle const& b)
{
    stoType const* t = b.type();
    if (a == t)
        return 1;
    return a && t && *a == *t;
}

stoLiveObjectTable::Slot* stoLiveObjectTable::find_slot(stoLiveObject const& k) const
{
    if (!k.ptr) {
        for (std::size_t i = 0; i < m_null_size; ++i)
            if (same_type(m_null[i].type, k.type))
                return &m_null[i];
        return nullptr;
    }
    if (!m_slots)
        return nullptr;
    for (std::size_t i = co_spread_address(k.ptr) & m_mask;; i = (i + 1) & m_mask) {
        Slot& slot = m_slots[i];
        if (!slot.ptr)
            return nullptr;
        if (slot.ptr == k.ptr && same_type(slot.type, k.type))
            return &slot;
    }
}

stoAnalysedEntry* stoLiveObjectTable::find(stoLiveObject const& k) const
{
    Slot* slot = find_slot(k);
    return slot ? &slot->entry : nullptr;
}

stoAnalysedEntry& stoLiveObjectTable::operator[](stoLiveObject const& k)
{
    if (Slot* slot = find_slot(k))
        return slot->entry;
    if (!k.ptr) {
        // Rare enough for a list that grows by one.
        Slot* more = static_cast<Slot*>(std::realloc(m_null, (m_null_size + 1) * sizeof(Slot)));
        if (!more)
            throw std::bad_alloc();
        m_null = more;
        m_null[m_null_size] = Slot{nullptr, k.type.type(), stoAnalysedEntry()};
        return m_null[m_null_size++].entry;
    }
    if (!m_slots || (static_cast<std::size_t>(m_size) + 1) * 10 > (m_mask + 1) * kMaxLoadTenths)
        grow();
    std::size_t i = co_spread_address(k.ptr) & m_mask;
    while (m_slots[i].ptr)
        i = (i + 1) & m_mask;
    m_slots[i] = Slot{k.ptr, k.type.type(), stoAnalysedEntry()};
    ++m_size;
    return m_slots[i].entry;
}

void stoLiveObjectTable::grow()
{
    std::size_t count = m_slots ? 2 * (m_mask + 1) : kFirstSlots;
    Slot* slots = co_zeroed_slots<Slot>(count);
    std::size_t mask = count - 1;
    for (std::size_t j = 0; m_slots && j <= m_mask; ++j) {
        if (!m_slots[j].ptr)
            continue;
        std::size_t i = co_spread_address(m_slots[j].ptr) & mask;
        while (slots[i].ptr)
            i = (i + 1) & mask;
        slots[i] = m_slots[j];
    }
    std::free(m_slots);
    m_slots = slots;
    m_mask = mask;
}

void stoLiveObjectTable::clear()
{
    std::free(m_slots);
    std::free(m_null);
    m_slots = nullptr;
    m_null = nullptr;
    m_mask = 0;
    m_size = 0;
    m_null_size = 0;
}

void stoLiveObjectTable::remove(stoLiveObject const& k)
{
    Slot* slot = find_slot(k);
    if (!slot)
        return;
    if (!k.ptr) {
        *slot = m_null[--m_null_size];
        return;
    }
    // Backward shift: later slots of the same run move up into the hole when
    // their home lies at or before it, so that no look-up stops early.
    std::size_t hole = static_cast<std::size_t>(slot - m_slots);
    for (std::size_t j = (hole + 1) & m_mask; m_slots[j].ptr; j = (j + 1) & m_mask) {
        std::size_t home = co_spread_address(m_slots[j].ptr) & m_mask;
        // Distances along the probe direction, wrapping around the end.
        if (((j - home) & m_mask) >= ((j - hole) & m_mask)) {
            m_slots[hole] = m_slots[j];
            hole = j;
        }
    }
    m_slots[hole] = Slot{nullptr, nullptr, stoAnalysedEntry()};
    --m_size;
}

// ---------------------------------------------------------------- analyser

stoAnalyser::stoAnalyser() : stoAnalyser(nullptr, nullptr) {}

stoAnalyser::stoAnalyser(stoAnalyser* outer) : stoAnalyser(nullptr, outer) {}

stoAnalyser::stoAnalyser(stoAnalyser* next, stoAnalyser* outer)
    : m_stub_mode(0), m_outer(outer), m_next(next), m_dangling_targets_known(0)
{
}

stoAnalyser::~stoAnalyser()
{
    for (stoValue* stub : m_stubs)
        delete stub;
}

stoAnalyser* stoAnalyser::outer()
{
    stoAnalyser* a = this;
    while (a->m_outer)
        a = a->m_outer;
    return a;
}

stoValue* stoAnalyser::raw_to_value(stoTypeHandle const& type, void const* p)
{
    return raw_to_value(stoRawPtr(type, p, type.is_null() ? 0 : type->size()));
}

stoValue* stoAnalyser::raw_to_value(stoRawPtr const& p)
{
    if (!p.ptr() || p.type().is_null())
        return nullptr;
    // Only objects of classes, and instances of types that plain pointers
    // point at, are registered, awaited or stubbed: values of other types are
    // made afresh without any look-up.
    if (!p.type()->is_class() && !p.type()->is_plain_pointee())
        return p.type()->raw_to_value(this, p);
    if (stoValue* known = look_up_raw(p))
        return known;
    stoValue* value = nullptr;
    if (m_stub_mode)
        value = create_stub(p);
    if (!value)
        value = p.type()->raw_to_value(this, p);
    if (value)
        undangle(p, value);
    return value;
}

void stoAnalyser::register_new_value(stoValue const* value, stoRawPtr const& p)
{
    // Only objects and stubs can be reached a second time, and instances of
    // types that plain pointers point at; the other members, arrays and
    // pointer fields inside an object are reached through it alone, so
    // keeping them out of the table changes no result and saves most of its
    // entries.
    if (!value->is_object() && !value->is_stub() &&
        (value->type_ref().is_null() || !value->type_ref()->is_plain_pointee()))
        return;
    m_values[stoLiveObject{value->type_ref(), p.ptr()}].set_value(value);
}

void stoAnalyser::completed_value(stoValue const*, stoRawPtr const&) {}

int stoAnalyser::should_dangle(stoRawPtr const& p) const
{
    if (p.type().is_null())
        return 0;
    stoClass const* meta = p.type()->sto_dynamic_class();
    return meta == sto_class_stoPtrType() || meta == sto_class_stoTypeHandleType();
}

stoValue* stoAnalyser::look_up_raw(stoRawPtr const& p) const
{
    stoLiveObject k = key(p);
    for (stoAnalyser const* a = this; a; a = a->m_outer)
        if (stoAnalysedEntry const* entry = a->m_values.find(k))
            if (stoValue* v = entry->value())
                return v;
    return nullptr;
}

namespace {

stoPtrType const* as_pointer_type(stoTypeHandle const& t)
{
    stoObjectPtr o = t->sto_object();
    return stoPtrType::sto_dynamic_cast(o.type(), o.ptr());
}

}  // namespace

stoPtrType const* stoAnalyser::pointer_type_of(stoTypeHandle const& t)
{
    if (t.is_null() || t->is_class())
        return nullptr;
    return as_pointer_type(t);
}

stoPtrType const* stoAnalyser::pointer_type_cached(stoType const* t)
{
    PointerTypeSlot& slot = m_pointer_types[(reinterpret_cast<std::uintptr_t>(t) >> 4) & 63];
    if (slot.type != t) {
        slot.type = t;
        slot.pointer_type = t && !t->is_class() ? as_pointer_type(t->handle()) : nullptr;
    }
    return slot.pointer_type;
}

void stoAnalyser::prefetch(stoRawPtr const& p, stoPtrType const* pointer_type) const
{
    void const* object = p.ptr();
    if (!object)
        return;
    stoAnalyser const* table = this;
    if (pointer_type) {
        object = pointer_type->raw_pointee(object);
        if (!object)
            return;
        while (table->m_outer)
            table = table->m_outer;
        __builtin_prefetch(object);
    } else if (p.type().is_null() || !p.type()->is_class()) {
        return;
    }
    // The hash is the address's alone, so no type is needed to find the slot.
    table->m_values.prefetch(object);
}

stoPtrValue* stoAnalyser::handle_smart_pointer(stoRawPtr const& p)
{
    if (should_dangle(p))
        return dangle(p);
    stoPtrType const* type = as_pointer_type(p.type());
    stoPtrValue* pointer = type->create_null();
    register_new_value(pointer, p);
    if (void const* address = type->raw_pointee(p.ptr())) {
        stoRawPtr whole = type->pointee_type()->true_type(address);
        stoValue* target = outer()->raw_to_value(whole);
        // Only objects, stubs and instances of plain pointees are met again;
        // any other value is made afresh for this pointer, so no pointer can
        // have been set to it.
        if (target && !target->is_object() && !target->is_stub() && !whole.type()->is_plain_pointee()) {
            pointer->set_pointee(target);
        } else if (target) {
            stoPtrValue*& first = outer()->m_pointers[target];
            if (first) {
                pointer->become_clone(first);
            } else {
                // A stub belongs to the analyser that made it: even an owning
                // or counted pointer only points at it.
                if (target->is_stub())
                    pointer->stoPtrValue::set_pointee(target);
                else
                    pointer->set_pointee(target);
                first = pointer;
            }
        }
    }
    completed_value(pointer, p);
    return pointer;
}

stoPtrValue* stoAnalyser::dangle(stoRawPtr const& p)
{
    stoPtrType const* type = as_pointer_type(p.type());
    stoPtrValue* pointer = type->create_null();
    void const* address = type->raw_pointee(p.ptr());
    if (!address)
        return pointer;
    stoRawPtr target = type->pointee_type()->true_type(address);
    // A target whose value is known already is pointed at at once: it would
    // only wait to be set free by the same value a moment later.
    if (stoValue* known = look_up_raw(target)) {
        pointer->set_pointee(known);
        return pointer;
    }
    stoAnalyser* o = outer();
    o->m_values[key(target)].set_waited_for(1);
    o->m_dangling.add(target.ptr(), stoWaitingPointer{pointer, target.type_ref(), target.size()});
    o->m_dangling_targets_known = 0;
    return pointer;
}

void stoAnalyser::undangle(stoRawPtr const& p, stoValue* value)
{
    stoAnalyser* o = outer();
    if (o->m_dangling.size() == 0)
        return;
    stoLiveObject k = key(p);
    stoAnalysedEntry* entry = o->m_values.find(k);
    if (!entry || !entry->waited_for())
        return;
    entry->set_waited_for(0);
    if (!entry->value())
        o->m_values.remove(k);  // only the mark was there: the value is in a nested analyser
    o->m_dangling_targets_known = 0;
    // Objects that share an address (a first member, a base) share a chain.
    o->m_dangling.take_if(
        p.ptr(), [&](stoWaitingPointer const& w) { return w.type == p.type_ref(); },
        [&](stoWaitingPointer const& w) { w.pointer->set_pointee(value); });
}

stoPtrValue* stoAnalyser::look_up_pointer(stoValue const* target)
{
    stoPtrValue** earlier = outer()->m_pointers.find(target);
    return earlier ? *earlier : nullptr;
}

stoValue* stoAnalyser::create_stub(stoRawPtr const& p)
{
    stoStubbable const* stubbable = stoStubbable::to_stubbable(p);
    if (!stubbable)
        return nullptr;
    // A stub names an object by its path, and the path leads to the object
    // its schema finds under that name. A schema object that is not that one
    // (the 8-byte int, which the store schema names "int" like the int) is
    // written as the stub of the named object, so that the file never holds
    // two stubs of one path and reads back to what it names. Only an object of
    // the same kind stands in: a mapper is named like its own class, which is
    // a named type of the schema, yet the mapper's stub must name the mapper.
    if (stoSchemaObject const* named = dynamic_cast<stoSchemaObject const*>(stubbable)) {
        stoSchemaObject const* found = named->schema() ? named->schema()->look_up_object(named->name()) : nullptr;
        if (found && found != named && *found->sto_dynamic_class() == *named->sto_dynamic_class()) {
            stoObjectPtr whole = found->sto_object();
            stoValue* stub = raw_to_value(stoRawPtr(whole.type()->handle(), whole.ptr(), whole.type()->size()));
            if (stub)
                register_new_value(stub, p);
            return stub;
        }
    }
    stoRawPtr parent = stubbable->stub_parent();
    stoRawPtr id = stubbable->stub_id();
    stoStub* stub = new stoStub(p.type(), nullptr, nullptr);
    m_stubs.add(stub);
    register_new_value(stub, p);
    stoValue* parent_value = raw_to_value(parent);
    stoValue* id_value = raw_to_value(id);
    stub->set(parent_value, id_value);
    completed_value(stub, p);
    return stub;
}

void stoAnalyser::stub_dangling_pointers()
{
    set_stub_mode(1);
    stoAnalyser* o = outer();
    for (;;) {
        // In the order the pointers began to wait, so that the stubs and the
        // graph come out the same on every run; each object once, however
        // many pointers wait for it.
        std::vector<stoRawPtr> targets;
        coSet<stoLiveObject> seen;
        o->m_dangling.for_each([&](void const* address, stoWaitingPointer const& w) {
            stoLiveObject object{w.type, address};
            if (!seen.contains(object)) {
                seen.add(object);
                targets.emplace_back(w.type, address, w.size);
            }
        });
        int resolved = 0;
        for (stoRawPtr const& target : targets) {
            auto same_type = [&](stoWaitingPointer const& w) { return w.type == target.type_ref(); };
            if (!o->m_dangling.any(target.ptr(), same_type) || !stoStubbable::to_stubbable(target))
                continue;
            raw_to_value(target);
            ++resolved;
        }
        if (!resolved)
            break;
    }
}

stoRawPtr stoAnalyser::dangling_pointer(stoPtrValue const* p)
{
    stoAnalyser* o = outer();
    if (!o->m_dangling_targets_known) {
        o->m_dangling_targets.clear();
        o->m_dangling.for_each([&](void const* address, stoWaitingPointer const& w) {
            o->m_dangling_targets[w.pointer] = stoRawPtr(w.type, address, w.size);
        });
        o->m_dangling_targets_known = 1;
    }
    stoRawPtr const* target = o->m_dangling_targets.find(p);
    return target ? *target : stoRawPtr();
}

int stoAnalyser::number_of_dangling_pointers() { return outer()->m_dangling.size(); }

void stoAnalyser::forget_live_objects()
{
    m_values.clear();
    m_pointers.clear();  // a large table gives its memory back
}

void stoAnalyser::destroy_stubs()
{
    for (stoAnalyser* a = this; a; a = a->m_next) {
        if (!a->m_stubs.is_empty()) {
            // Forget the registrations of the stubs and of their ids before
            // they go, so that a later analysis cannot find them.
            stoValuePtrcoSet gone;
            for (stoValue* stub : a->m_stubs) {
                gone.add(stub);
                if (stoValue const* id = static_cast<stoStub*>(stub)->id())
                    id->participants(gone);
            }
            std::vector<stoLiveObject> keys;
            a->m_values.for_each([&](stoLiveObject const& k, stoAnalysedEntry const& entry) {
                if (stoValue* v = entry.value(); v && gone.contains(v))
                    keys.push_back(k);
            });
            for (stoLiveObject const& k : keys) {
                stoAnalysedEntry* entry = a->m_values.find(k);
                if (entry->waited_for())
                    entry->set_value(nullptr);  // keep the mark of waiting pointers
                else
                    a->m_values.remove(k);
            }
            for (stoValue* stub : a->m_stubs)
                delete stub;
            a->m_stubs.clear();
        }
        if (stoAnalyser* enclosing = a->m_outer) {
            stoAnalyser* back = enclosing->m_outer;
            if (back == a)
                enclosing->m_outer = nullptr;
            enclosing->destroy_stubs();
            enclosing->m_outer = back;
        }
    }
}
