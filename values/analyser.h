// stoAnalyser: turns a live object of a described type into a value graph.
//
// Each type converts its own kind of memory; the analyser supplies what they
// need in common: one value per live object (type and address) however often
// it is reached, pointers resolved against values made earlier or later, and
// stubs for objects that are not to be written whole.
//
//   stoAnalyser a;
//   stoValue* root = a.raw_to_value(sto_type_annDocument(), doc);
//   a.stub_dangling_pointers();
//   ... use root ...; delete root; a.destroy_stubs();
#pragma once

#include "platform/co_containers.h"
#include "platform/co_pointers.h"
#include "values/raw_ptr.h"

#include <memory>

class stoValue;
class stoPtrValue;

using stoRawPtrstoValuePtrcoTable = coTable<stoRawPtr, stoValue*>;
using stoValuePtrstoValuePtrcoTable = coTable<stoValue const*, stoPtrValue*>;
using stoValuePtrstoRawPtrcoTable = coTable<stoPtrValue const*, stoRawPtr>;
using stoRawPtrstoValuecoDList = coDList<stoPtrValue*>;

class stoAnalyser {
public:
    // An outermost analyser.
    stoAnalyser();
    // A nested analyser: it sees every value of the analysers around it.
    explicit stoAnalyser(stoAnalyser* outer);
    // A nested analyser whose stubs go with `next`'s.
    stoAnalyser(stoAnalyser* next, stoAnalyser* outer);
    virtual ~stoAnalyser();
    stoAnalyser(stoAnalyser const&) = delete;
    stoAnalyser& operator=(stoAnalyser const&) = delete;

    // The value of a live object; null for a null address. The root value
    // belongs to the caller; stubs belong to this analyser.
    virtual stoValue* raw_to_value(stoRawPtr const& p);
    // Records a just-made value for a live object, before its parts are analysed.
    virtual void register_new_value(stoValue const* value, stoRawPtr const& p);
    // Called when a value is complete.
    virtual void completed_value(stoValue const* value, stoRawPtr const& p);
    // Whether a pointer held in p waits for its target instead of analysing it.
    virtual int should_dangle(stoRawPtr const& p) const;

    stoValue* raw_to_value(stoTypeHandle const& type, void const* p);
    stoAnalyser* outer();
    int stub_mode() const { return m_stub_mode; }
    void set_stub_mode(int on) { m_stub_mode = on; }

    // The pointer value of a pointer field (plain, owning, counted or handle).
    stoPtrValue* handle_smart_pointer(stoRawPtr const& p);
    // Turns waiting pointers to stubbable objects into pointers to stubs.
    void stub_dangling_pointers();
    // The live object a waiting pointer value points at; null when not waiting.
    stoRawPtr dangling_pointer(stoPtrValue const* p);
    // Deletes the stubs of this analyser and of the analysers it names.
    void destroy_stubs();
    int number_of_dangling_pointers();

protected:
    virtual stoValue* look_up_raw(stoRawPtr const& p) const;
    stoValue* create_stub(stoRawPtr const& p);
    stoPtrValue* dangle(stoRawPtr const& p);
    void undangle(stoRawPtr const& p, stoValue* value);
    stoPtrValue* look_up_pointer(stoValue const* target);

    int m_stub_mode;
    stoAnalyser* m_outer;
    stoAnalyser* m_next;
    stoRawPtrstoValuePtrcoTable m_values;
    stoValuePtrstoValuePtrcoTable m_pointers;
    coTable<stoRawPtr, std::unique_ptr<stoRawPtrstoValuecoDList>> m_dangling;
    stoValuePtrstoRawPtrcoTable m_dangling_targets;
    coSet<stoValue*> m_stubs;
};
