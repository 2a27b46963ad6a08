// stoSynthesiser: turns a value graph back into live objects.
//
// The caller supplies the memory of the root object; each type writes its
// own kind of value. The synthesiser records the live address made for each
// value, creates the objects owned by owning and counted pointers, points
// plain pointers at objects made later, and stages classes that are filled
// through a fake object. It never changes or deletes the value graph.
//
//   stoSynthesiser s;
//   s.synthesise(root, doc);        // writes root into *doc, then clean_up()
#pragma once

#include "platform/co_address_chains.h"
#include "platform/co_address_table.h"
#include "platform/co_containers.h"
#include "platform/co_pointers.h"
#include "types/type_handle.h"
#include "values/raw_ptr.h"

#include <memory>

class stoValue;
class stoPtrValue;
class stoPtrType;
class stoStub;
class stoClassMapper;
class stoClass;

// A real object being filled through a fake object of a described class; the
// fake is copied into the real object once, at clean-up.
class stoSynthesiseFake {
public:
    stoSynthesiseFake(stoClassMapper const* mapper, stoObjectPtr const& real);
    // Updates the real object if that has not happened (a failure is dropped),
    // then destroys the fake.
    ~stoSynthesiseFake();
    stoSynthesiseFake(stoSynthesiseFake const&) = delete;
    stoSynthesiseFake& operator=(stoSynthesiseFake const&) = delete;

    stoObjectPtr fake() const { return stoObjectPtr(m_fake_class, m_fake); }
    void update();

private:
    stoClassMapper const* m_mapper;
    stoObjectPtr m_real;
    stoClass const* m_fake_class;
    void* m_fake;
    int m_updated;
};

// One entry per object of the document: tables that walks can prefetch.
using stoValuePtrstoVoidPtrcoTable = coAddressTable<stoValue const*, void*>;
using stoVoidPtrstoVoidPtrcoTable = coAddressTable<void const*, void*>;

// A pointer field waiting for the object of the value it is chained under.
struct stoPendingField {
    stoPtrType const* type;
    void* field;
};

class stoSynthesiser {
public:
    stoSynthesiser();
    virtual ~stoSynthesiser();
    stoSynthesiser(stoSynthesiser const&) = delete;
    stoSynthesiser& operator=(stoSynthesiser const&) = delete;

    // Called when the value being written is a stub; nothing here.
    virtual void handle_stub(stoStub const* stub, stoRWRawPtr const& p);
    // Called when a pointer's pointee is a stub, with the pointer field;
    // nothing here, so the field keeps its content.
    virtual void look_up_stub(stoRWRawPtr const& field, stoStub const* stub);
    virtual stoObjectPtr start_fake(stoClassMapper const* mapper, stoObjectPtr const& real);
    // The object of `type` at `object` as the pointee type of a pointer
    // field, or null when it is not one: the store's cast along declared
    // bases here.
    virtual void const* view_as(stoType const& pointee, stoType const& type, void const* object) const;
    virtual void end_fake(stoClassMapper const* mapper, stoObjectPtr const& fake, stoObjectPtr const& real);

    // Entry points: write the value, then clean up.
    void synthesise(stoValue const* value, stoRWRawPtr const& p);
    void synthesise(stoValue const* value, void* address);

    void value_to_raw(stoValue const* value, void* address);
    void value_to_raw(stoValue const* value, stoRWRawPtr const& p);
    void handle_smart_pointer(stoPtrValue const* value, stoRWRawPtr const& field);
    // The same for a caller that knows the field's pointer type.
    void handle_smart_pointer(stoPtrValue const* value, stoRWRawPtr const& field, stoPtrType const* type);
    void mark_ptr(stoPtrType const* type, stoValue const* target, void* field);
    void register_new_object(stoValue const* value, stoRWRawPtr const& p);
    // Starts loading what writing v will look up first: its own entry and,
    // for a pointer, its target and the target's entry. A walk calls this a
    // few values ahead; it changes nothing.
    void prefetch(stoValue const* v) const;
    // Fills every real object from its fake, the last started first.
    void clean_up();
    int in_memory_required() const { return m_in_memory_required; }
    // The live address written for a value, or null.
    void* object_of(stoValue const* value) const;

protected:
    // What m_objects holds for a value that pointer fields wait for (in
    // m_pending) before its object is made; never a live address.
    static void* waiting_mark()
    {
        static char mark;
        return &mark;
    }

    stoValuePtrstoVoidPtrcoTable m_objects;
    coAddressChains<stoPendingField> m_pending;
    stoVoidPtrstoVoidPtrcoTable m_owners;
    coPageArr<std::unique_ptr<stoSynthesiseFake>> m_fakes;
    int m_in_memory_required;
};
