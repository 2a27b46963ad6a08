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

#include "platform/co_address_chains.h"
#include "platform/co_address_table.h"
#include "platform/co_containers.h"
#include "platform/co_pointers.h"
#include "values/raw_ptr.h"

#include <cstdint>

class stoValue;
class stoPtrValue;
class stoPtrType;

// A live object as the analyser's tables know it: type and address, equal
// as raw pointers are (the size takes no part). Its hash is that of the
// address alone, which is cheap and needs no call into the type; the few
// objects that share an address (a first member, a base) only share a hash.
struct stoLiveObject {
    stoTypeHandle type;
    void const* ptr;
    int operator==(stoLiveObject const& other) const { return ptr == other.ptr && type == other.type; }
};
inline unsigned int co_hash(stoLiveObject const& o) { return co_mix_address(o.ptr); }

// What the analyser records for a live object: the value made for it, or
// null while pointers wait for a value not made yet; and whether pointers
// wait for it. One word, so that a table entry is three words.
class stoAnalysedEntry {
public:
    stoValue* value() const { return reinterpret_cast<stoValue*>(m_bits & ~kWaiting); }
    int waited_for() const { return static_cast<int>(m_bits & kWaiting); }
    void set_value(stoValue const* v) { m_bits = reinterpret_cast<std::uintptr_t>(v) | (m_bits & kWaiting); }
    void set_waited_for(int on) { m_bits = on ? (m_bits | kWaiting) : (m_bits & ~kWaiting); }

private:
    // Values are at least 8-aligned, so the low bit of the address is free.
    static constexpr std::uintptr_t kWaiting = 1;
    std::uintptr_t m_bits = 0;
};

// The analyser's table of live objects. Open addressing with linear probing
// over one array of (address, type, entry) slots: finding an object, adding
// it and reading its mark touch the same one or two cache lines, and the
// analysis can ask for them ahead (prefetch), which matters once the table
// is far larger than the caches. Hashed by the address alone. Addresses are
// never null here in practice; a null one is kept aside all the same.
class stoLiveObjectTable {
public:
    stoLiveObjectTable() = default;
    ~stoLiveObjectTable();
    stoLiveObjectTable(stoLiveObjectTable const&) = delete;
    stoLiveObjectTable& operator=(stoLiveObjectTable const&) = delete;

    // The entry of k, or null.
    stoAnalysedEntry* find(stoLiveObject const& k) const;
    // The entry of k, made empty when absent.
    stoAnalysedEntry& operator[](stoLiveObject const& k);
    void remove(stoLiveObject const& k);
    // Forgets every object and gives the slots back.
    void clear();
    // Starts loading the slots where objects at ptr are looked for.
    void prefetch(void const* ptr) const
    {
        if (m_slots)
            __builtin_prefetch(&m_slots[co_spread_address(ptr) & m_mask]);
    }
    int size() const { return m_size + static_cast<int>(m_null_size); }
    // Every key, in no particular order; the table must not change meanwhile.
    template <class F>
    void for_each(F&& f) const
    {
        for (std::size_t i = 0; m_slots && i <= m_mask; ++i)
            if (m_slots[i].ptr)
                f(stoLiveObject{handle(m_slots[i].type), m_slots[i].ptr}, m_slots[i].entry);
        for (std::size_t i = 0; i < m_null_size; ++i)
            f(stoLiveObject{handle(m_null[i].type), nullptr}, m_null[i].entry);
    }

private:
    struct Slot {
        void const* ptr;  // null: the slot is free
        stoType const* type;
        stoAnalysedEntry entry;
    };
    static stoTypeHandle handle(stoType const* t);
    static int same_type(stoType const* a, stoTypeHandle const& b);
    Slot* find_slot(stoLiveObject const& k) const;
    void grow();

    Slot* m_slots = nullptr;
    std::size_t m_mask = 0;  // slot count - 1
    int m_size = 0;
    Slot* m_null = nullptr;  // the objects at the null address, unordered
    std::size_t m_null_size = 0;
};
using stoValuePtrstoValuePtrcoTable = coTable<stoValue const*, stoPtrValue*>;
// Tables keyed by live objects as raw pointers, and the reverse, for callers
// that keep their own records of what an analysis made.
using stoRawPtrstoValuePtrcoTable = coTable<stoRawPtr, stoValue*>;
using stoValuePtrstoRawPtrcoTable = coTable<stoValue const*, stoRawPtr>;

// A pointer value waiting for the live object of `type` at the address it
// is chained under; `size` is that object's size.
struct stoWaitingPointer {
    stoPtrValue* pointer;
    stoTypeHandle type;
    int size;
};

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
    // Starts loading what the analysis of p will read first: for a class, the
    // entry of the object; for a pointer field (pointer_type, its type as a
    // pointer type, non-null), the target's memory and entry. Loops over
    // elements and members call it ahead, so that the cache misses of
    // several objects overlap instead of following one another. Reads
    // nothing but the field itself.
    void prefetch(stoRawPtr const& p, stoPtrType const* pointer_type) const;
    // t as a pointer type, or null.
    static stoPtrType const* pointer_type_of(stoTypeHandle const& t);
    // The same, remembered for the types met recently: for the member loops,
    // which ask for every member of every object.
    stoPtrType const* pointer_type_cached(stoType const* t);
    // Turns waiting pointers to stubbable objects into pointers to stubs.
    void stub_dangling_pointers();
    // The live object a waiting pointer value points at; null when not waiting.
    stoRawPtr dangling_pointer(stoPtrValue const* p);
    // Deletes the stubs of this analyser and of the analysers it names.
    void destroy_stubs();
    // Frees the tables of live objects once the analysis is over: a writer
    // holding the whole value graph needs them no more, and at one entry per
    // object they weigh. Values and stubs stay as they are; pointers still
    // waiting stay waiting. A later analysis starts from nothing.
    void forget_live_objects();
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
    // Per live object: its value, and whether pointers wait for it (the
    // latter only in the outermost analyser). One entry serves registration,
    // look-up and the check for waiting pointers, which all come to the same
    // object within a short time.
    stoLiveObjectTable m_values;
    // Outermost only: the first pointer value set to each object or stub
    // (other values are made afresh for every pointer and never met again).
    coAddressTable<stoValue const*, stoPtrValue*> m_pointers;
    // Outermost only: the pointers waiting for live objects without a value,
    // in the order they began to wait.
    coAddressChains<stoWaitingPointer> m_dangling;
    // The live object each waiting pointer waits for, made when asked for
    // and kept while no pointer starts or stops waiting.
    coTable<stoPtrValue const*, stoRawPtr> m_dangling_targets;
    int m_dangling_targets_known;
    coSet<stoValue*> m_stubs;

private:
    static stoLiveObject key(stoRawPtr const& p) { return stoLiveObject{p.type_ref(), p.ptr()}; }

    struct PointerTypeSlot {
        stoType const* type = nullptr;
        stoPtrType const* pointer_type = nullptr;
    };
    PointerTypeSlot m_pointer_types[64];
};
