// The value graph: a neutral, typed graph between live objects and the text
// of a store file. Every node is a stoValue carrying the handle of the type
// it is a value of. The analyser builds graphs from live memory, the writer
// prints them, the reader builds them from files, the migrator rebuilds them
// for a newer schema and the synthesiser turns them back into live objects.
//
// Ownership: object, array and mapped values and stubs own their children
// (a stub its id, not its parent); plain pointer values own nothing; owning
// pointer values own their pointee; counted pointer values share it. Deleting
// the root deletes the graph. Values are allocated from the installed value
// pool, if any, and must be deleted under the same allocator.
#pragma once

#include "platform/co_containers.h"
#include "platform/co_pointers.h"
#include "platform/ut_string.h"
#include "types/basic.h"
#include "types/persistent.h"
#include "types/type_handle.h"

#include <cstddef>

class stoClass;
class stoMapper;
class stoMemoryPool;
class stoMemberHandle;
class stoProcessValue;
class stoValue;

using stoValuePtrcoSet = coSet<stoValue const*>;

class stoValue {
    STO_PERSISTENT(stoValue)
public:
    virtual int process(stoProcessValue* p) const = 0;
    // Adds this value and everything reachable from it; a value already in
    // the set stops the walk, so shared values are visited once and cycles end.
    virtual void participants(stoValuePtrcoSet& set) const = 0;
    virtual ~stoValue();
    virtual int number_of_children() const { return 0; }
    virtual stoValue const* child(int) const { return nullptr; }

    stoTypeHandle type() const { return m_type; }
    stoTypeHandle const& type_ref() const { return m_type; }
    // Cheap kind tests for the conversion loops, which meet every value.
    enum Kind : unsigned char {
        kOtherKind,
        kIntKind,
        kDoubleKind,
        kStringKind,
        kByteArrayKind,
        kObjectKind,
        kArrayKind,
        kMappedKind,
        kStubKind,
        kPtrKind,
        kPrgKind,
        kPrfKind,
        kTypeHandleKind
    };
    Kind kind() const { return m_kind; }
    int is_object() const { return m_kind == kObjectKind; }
    int is_stub() const { return m_kind == kStubKind; }
    int is_pointer() const { return m_kind >= kPtrKind; }

    static void* operator new(std::size_t size);
    static void operator delete(void* p);
    static stoMemoryPool*& sto_memory_pool() { return s_sto_pool; }
    static int sto_memory_pool_size() { return 0xffc00; }

protected:
    explicit stoValue(stoTypeHandle const& type) : m_type(type) {}
    stoValue() = default;
    stoValue(stoValue const&) = delete;
    stoValue& operator=(stoValue const&) = delete;

    stoTypeHandle m_type;
    Kind m_kind = kOtherKind;
    static stoMemoryPool* s_sto_pool;
};
STO_DECLARE_CLASS(stoValue)

enum stoIntValue64 { stoIntValue64Tag };

class stoIntValue : public stoValue {
    STO_PERSISTENT(stoIntValue)
public:
    explicit stoIntValue(int v) : stoValue(sto_type_int()), m_value(v) { m_kind = kIntKind; }
    stoIntValue(stoIntValue64, long long v) : stoValue(sto_type_int()), m_value(v) { m_kind = kIntKind; }
    int process(stoProcessValue* p) const override;
    void participants(stoValuePtrcoSet& set) const override;

    long long value64() const { return m_value; }
    // Throws stoIntTooBigException when the number does not fit 32 bits.
    int value() const;

protected:
    stoIntValue() : m_value(0) { m_kind = kIntKind; }
    long long m_value;
};
STO_DECLARE_CLASS(stoIntValue)

class stoDoubleValue : public stoValue {
    STO_PERSISTENT(stoDoubleValue)
public:
    explicit stoDoubleValue(double v) : stoValue(sto_type_double()), m_value(v) { m_kind = kDoubleKind; }
    int process(stoProcessValue* p) const override;
    void participants(stoValuePtrcoSet& set) const override;
    double value() const { return m_value; }

protected:
    stoDoubleValue() : m_value(0) { m_kind = kDoubleKind; }
    double m_value;
};
STO_DECLARE_CLASS(stoDoubleValue)

class stoStringValue : public stoValue {
    STO_PERSISTENT(stoStringValue)
public:
    explicit stoStringValue(utString const& v) : stoValue(sto_type_utString()), m_value(v) { m_kind = kStringKind; }
    int process(stoProcessValue* p) const override;
    void participants(stoValuePtrcoSet& set) const override;
    utString value() const { return m_value; }
    utString const& value_ref() const { return m_value; }

protected:
    stoStringValue() { m_kind = kStringKind; }
    utString m_value;
};
STO_DECLARE_CLASS(stoStringValue)

class stoByteArrayValue : public stoValue {
    STO_PERSISTENT(stoByteArrayValue)
public:
    explicit stoByteArrayValue(stoByteArray const& v) : stoValue(sto_type_stoByteArray()), m_value(v)
    {
        m_kind = kByteArrayKind;
    }
    int process(stoProcessValue* p) const override;
    void participants(stoValuePtrcoSet& set) const override;
    stoByteArray const& value() const { return m_value; }

protected:
    stoByteArrayValue() { m_kind = kByteArrayKind; }
    stoByteArray m_value;
};
STO_DECLARE_CLASS(stoByteArrayValue)

// An instance of a class: one owned slot per inherited member, in the
// class's member order.
class stoObject : public stoValue {
    STO_PERSISTENT(stoObject)
public:
    explicit stoObject(stoClass const* cls);
    ~stoObject() override;
    int process(stoProcessValue* p) const override;
    void participants(stoValuePtrcoSet& set) const override;
    int number_of_children() const override;
    stoValue const* child(int i) const override { return m_member_values[i]; }

    stoClass const* type() const { return m_class; }
    stoValue const* member(stoMemberHandle const& h) const;
    // Takes ownership; the slot is expected to be empty.
    void set_member(stoMemberHandle const& h, stoValue* v);
    stoValue const* member_at(int i) const { return m_member_values[i]; }
    void set_member_at(int i, stoValue* v) { m_member_values[i] = v; }
    // Gives up the value in slot i without deleting it.
    stoValue* release_member_at(int i);
    // The number of inherited members of the class of the object value at p.
    static int inherited_members(void const* p);

protected:
    stoObject() : m_class(nullptr), m_member_values(nullptr), m_slots_from_type(1) { m_kind = kObjectKind; }
    stoClass const* m_class;
    stoValue** m_member_values;
    // An object made by its default constructor is filled as a persistent
    // object: its slot array, if any, comes from the array type's
    // create_array rather than from the value allocator.
    unsigned char m_slots_from_type = 0;
};
STO_DECLARE_CLASS(stoObject)

// A fixed or variable array: one owned slot per element.
class stoArrayValue : public stoValue {
    STO_PERSISTENT(stoArrayValue)
public:
    stoArrayValue(stoTypeHandle const& type, int n);
    ~stoArrayValue() override;
    int process(stoProcessValue* p) const override;
    void participants(stoValuePtrcoSet& set) const override;
    int number_of_children() const override { return m_n_elements; }
    stoValue const* child(int i) const override { return m_array[i]; }

    int number_of_elements() const { return m_n_elements; }
    stoValue const* element(int i) const { return m_array[i]; }
    // Takes ownership; no bounds check; the slot is expected to be empty.
    void set_element(int i, stoValue* v) { m_array[i] = v; }
    stoValue* release_element(int i);

protected:
    stoArrayValue() : m_n_elements(0), m_array(nullptr), m_slots_from_type(1) { m_kind = kArrayKind; }
    int m_n_elements;
    stoValue** m_array;
    unsigned char m_slots_from_type = 0;  // as for stoObject
};
STO_DECLARE_CLASS(stoArrayValue)

// A container carried through its mapper.
class stoMappedValue : public stoValue {
    STO_PERSISTENT(stoMappedValue)
public:
    stoMappedValue(stoTypeHandle const& type, stoMapper const* mapper, int n);
    ~stoMappedValue() override;
    int process(stoProcessValue* p) const override;
    void participants(stoValuePtrcoSet& set) const override;
    int number_of_children() const override { return m_n_elements; }
    stoValue const* child(int i) const override { return m_array[i]; }

    stoMapper const* mapper() const { return m_mapper; }
    int number_of_elements() const { return m_n_elements; }
    stoValue const* element(int i) const { return m_array[i]; }
    void set_element(int i, stoValue* v) { m_array[i] = v; }

protected:
    stoMappedValue() : m_mapper(nullptr), m_n_elements(0), m_array(nullptr), m_slots_from_type(1)
    {
        m_kind = kMappedKind;
    }
    stoMapper const* m_mapper;
    int m_n_elements;
    stoValue** m_array;
    unsigned char m_slots_from_type = 0;  // as for stoObject
};
STO_DECLARE_CLASS(stoMappedValue)

// Stands for an object that is not in the graph: its parent's stub (not
// owned) and an identifying value (owned).
class stoStub : public stoValue {
    STO_PERSISTENT(stoStub)
public:
    stoStub(stoTypeHandle const& type, stoValue const* parent, stoValue* id)
        : stoValue(type), m_parent(parent), m_id(id)
    {
        m_kind = kStubKind;
    }
    ~stoStub() override;
    int process(stoProcessValue* p) const override;
    void participants(stoValuePtrcoSet& set) const override;
    int number_of_children() const override { return 2; }
    stoValue const* child(int i) const override { return i == 0 ? m_parent : m_id; }

    stoValue const* parent() const { return m_parent; }
    stoValue const* id() const { return m_id; }
    // Stores both without deleting earlier ones.
    void set(stoValue const* parent, stoValue* id)
    {
        m_parent = parent;
        m_id = id;
    }

protected:
    stoStub() : m_parent(nullptr), m_id(nullptr) { m_kind = kStubKind; }
    stoValue const* m_parent;
    stoValue* m_id;
};
STO_DECLARE_CLASS(stoStub)

using stoValuecoPrf = coPrf<stoValue>;

class stoPtrValue : public stoValue {
    STO_PERSISTENT(stoPtrValue)
public:
    stoPtrValue(stoTypeHandle const& type, stoValue const* pointee) : stoValue(type), m_value(pointee)
    {
        m_kind = kPtrKind;
    }
    int process(stoProcessValue* p) const override;
    void participants(stoValuePtrcoSet& set) const override;
    int number_of_children() const override { return 1; }
    stoValue const* child(int) const override { return m_value; }

    virtual void set_pointee(stoValue* v);
    // Makes this pointer refer to what `other` refers to.
    virtual void become_clone(stoPtrValue const* other);

    stoValue const* pointee() const { return m_value; }

protected:
    stoPtrValue() : m_value(nullptr) { m_kind = kPtrKind; }
    stoValue const* m_value;
};
STO_DECLARE_CLASS(stoPtrValue)

class stoPrgValue : public stoPtrValue {
    STO_PERSISTENT(stoPrgValue)
public:
    // Takes ownership of the pointee.
    stoPrgValue(stoTypeHandle const& type, stoValue* pointee) : stoPtrValue(type, pointee), m_value(pointee)
    {
        m_kind = kPrgKind;
    }
    int process(stoProcessValue* p) const override;
    void set_pointee(stoValue* v) override;
    // An owning pointer cannot share: nothing happens.
    void become_clone(stoPtrValue const* other) override;
    // Gives up the pointee without deleting it; the pointer becomes null.
    stoValue* release_pointee();

protected:
    stoPrgValue() { m_kind = kPrgKind; }
    coPrg<stoValue> m_value;
};
STO_DECLARE_CLASS(stoPrgValue)

class stoPrfValue : public stoPtrValue {
    STO_PERSISTENT(stoPrfValue)
public:
    stoPrfValue(stoTypeHandle const& type, stoValuecoPrf const& pointee)
        : stoPtrValue(type, pointee.get()), m_value(pointee)
    {
        m_kind = kPrfKind;
    }
    int process(stoProcessValue* p) const override;
    // Starts a count of its own for v.
    void set_pointee(stoValue* v) override;
    // Shares the other's pointee and count.
    void become_clone(stoPtrValue const* other) override;
    stoValuecoPrf const& counted() const { return m_value; }
    // Shares an existing count.
    void set_counted(stoValuecoPrf const& counted)
    {
        stoPtrValue::m_value = counted.get();
        m_value = counted;
    }

protected:
    stoPrfValue() { m_kind = kPrfKind; }
    stoValuecoPrf m_value;
};
STO_DECLARE_CLASS(stoPrfValue)

class stoTypeHandleValue : public stoPtrValue {
    STO_PERSISTENT(stoTypeHandleValue)
public:
    stoTypeHandleValue(stoTypeHandle const& type, stoValue const* pointee) : stoPtrValue(type, pointee)
    {
        m_kind = kTypeHandleKind;
    }
    int process(stoProcessValue* p) const override;
    void become_clone(stoPtrValue const* other) override;

protected:
    stoTypeHandleValue() { m_kind = kTypeHandleKind; }
};
STO_DECLARE_CLASS(stoTypeHandleValue)

// Hands a freshly made value to the pointer values that refer to it, so that
// exactly one owner results.
class stoValueHandle {
public:
    stoValueHandle() : m_value(nullptr) {}
    // Deletes the value if it still owns it.
    ~stoValueHandle() = default;
    stoValueHandle(stoValueHandle const&) = delete;
    stoValueHandle& operator=(stoValueHandle const&) = delete;

    // Shows and owns v; a value owned before is deleted.
    void become(utPtrClaimTag, stoValue* v);
    // Gives up ownership; null when it was already handed on.
    stoValue* release() { return m_owner.release(); }
    // The owner if still owned (this caller becomes it), else the plain pointer.
    stoValue* share();
    // Owning pointers take ownership, counted pointers share, others point.
    void set_pointee(stoPtrValue* p);
    stoValue* value() const { return m_value; }
    int owns() const { return m_owner.get() != nullptr; }

private:
    stoValue* m_value;
    coPrg<stoValue> m_owner;
    // The count shared by the counted pointers that received the value.
    stoValuecoPrf m_counted;
};

// Iterates the children of a value; a step after the end starts again.
class stoValueIT {
public:
    explicit stoValueIT(stoValue const* value) : m_value(value), m_index(-1) {}
    bool operator++();
    stoValue const* operator()() const { return m_value->child(m_index); }
    int index() const { return m_index; }
    int undefined() const { return m_index < 0 || m_index >= m_value->number_of_children(); }

private:
    stoValue const* m_value;
    int m_index;
};

class stoValueUtils {
public:
    explicit stoValueUtils(stoValue const* value) : m_value(value) {}
    // The value of the member of that name declared by the object's own
    // class; missing is 0 when found, 1 otherwise.
    stoValue const* member_value(utString const& name, int& missing) const;
    // Reads "m_name" and "m_version" of a schema identity's object value.
    void find_schema_name_version(utString& name, int& version) const;

private:
    stoValue const* m_value;
};

// The object value of a value, or null (the store's own down-cast).
stoObject const* sto_as_object(stoValue const* v);
stoStub const* sto_as_stub(stoValue const* v);
stoPtrValue const* sto_as_ptr(stoValue const* v);
