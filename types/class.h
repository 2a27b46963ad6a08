// stoClass, the meta type of a persistent application class, with its base
// and member records.
//
// A class knows its name and schema, the size of an instance, how to make
// and delete instances, its bases with their offsets and its members with
// their types and offsets. Bases and members are declared lazily, by the
// class's build function, the first time anybody needs them; the flattened
// table of all members (inherited first, depth first in base order, then the
// class's own) is computed on demand too. Member handles index that table.
//
//   stoClass const* c = sto_class_annNote();
//   stoMemberHandle h = c->find_member("annNamedItem", "m_name");
//   int at = c->offset(h);                      // from the start of an annNote
#pragma once

#include "platform/ut_string.h"
#include "types/persistent.h"
#include "types/system.h"
#include "types/type.h"

class stoBuilder;
class stoMapper;
class stoClass;

class stoBase {
    STO_PERSISTENT(stoBase)
public:
    stoBase(stoClass const* base_class, int offset) : m_base_class(base_class), m_base_offset(offset), m_next_base(nullptr) {}
    virtual ~stoBase();

    stoClass const* base_class() const { return m_base_class; }
    int offset() const { return m_base_offset; }
    stoBase const* next() const { return m_next_base; }

protected:
    friend class stoBuilder;
    stoBase() : m_base_class(nullptr), m_base_offset(0), m_next_base(nullptr) {}
    stoBase(stoBase const&) = delete;
    stoBase& operator=(stoBase const&) = delete;

    stoClass const* m_base_class;
    int m_base_offset;
    stoBase* m_next_base;
};
STO_DECLARE_CLASS(stoBase)

class stoMember : public stoStubbable {
    STO_PERSISTENT(stoMember)
public:
    virtual ~stoMember();

    stoValue* create_stub() const override;
    stoRawPtr stub_parent() const override;
    stoRawPtr stub_id() const override;

    stoTypeHandle type() const { return m_type; }
    int offset() const { return m_offset; }
    int size() const { return m_size; }
    utString name() const { return m_name; }
    utString const& name_ref() const { return m_name; }
    stoClass const* declaring_class() const { return m_class; }
    stoMember const* next() const { return m_next_member; }

protected:
    friend class stoBuilder;
    stoMember(stoClass const* cls, stoTypeHandle const& type, utString const& name, int offset, int size)
        : m_class(cls), m_type(type), m_name(name), m_offset(offset), m_next_member(nullptr), m_size(size) {}
    stoMember() : m_class(nullptr), m_name("<unset>"), m_offset(0), m_next_member(nullptr), m_size(-1) {}
    stoMember(stoMember const&) = delete;
    stoMember& operator=(stoMember const&) = delete;
    void set_type(stoTypeHandle const& type) { m_type = type; }

    stoClass const* m_class;
    stoTypeHandle m_type;
    utString m_name;
    int m_offset;
    stoMember* m_next_member;
    int m_size;
};
STO_DECLARE_CLASS(stoMember)

// One entry of a flattened member table.
class stoMemberInstance {
    STO_PERSISTENT(stoMemberInstance)
public:
    stoMemberInstance() : m_offset(0), m_member(nullptr) {}
    stoMemberInstance(int offset, stoMember const* member) : m_offset(offset), m_member(member) {}
    stoMemberInstance(stoMemberInstance const&) = default;
    stoMemberInstance& operator=(stoMemberInstance const&) = default;
    virtual ~stoMemberInstance() = default;

    int offset() const { return m_offset; }
    stoMember const* member() const { return m_member; }

protected:
    int m_offset;
    stoMember const* m_member;
};
STO_DECLARE_CLASS(stoMemberInstance)

// Index into a class's flattened member table; negative for no member.
class stoMemberHandle {
public:
    stoMemberHandle() : m_index(-1) {}
    int invalid() const { return m_index < 0; }
    int index() const { return m_index; }
    int operator==(stoMemberHandle const& other) const { return m_index == other.m_index; }
    int operator!=(stoMemberHandle const& other) const { return m_index != other.m_index; }

protected:
    friend class stoClass;
    friend class stoInheritedMemberIT;
    explicit stoMemberHandle(int index) : m_index(index) {}

    int m_index;
};

class stoClass : public stoType, public stoSchemaObject {
    STO_PERSISTENT(stoClass)
public:
    using BuildFn = void (*)(stoBuilder&, void const*);
    using MakeNewFn = void* (*)();
    using DeleteFn = void (*)(void*);
    using MakeNewArrayFn = void* (*)(int);
    using DeleteArrayFn = void (*)(void*, int);
    using TrueClassFn = stoObjectPtr (*)(void const*);

    // Adds the class to the schema, which owns it from then on.
    stoClass(stoSchema* schema, utString const& name, int size, BuildFn build, MakeNewFn make_new,
             DeleteFn del, MakeNewArrayFn make_new_array, DeleteArrayFn delete_array, TrueClassFn true_class,
             stoMapper const* mapper);
    virtual ~stoClass();

    // stoType
    int process(stoProcessType* p) const override;
    int size() const override { return m_size; }
    // The object's true class at its true address.
    stoRawPtr true_type(void const* p) const override;
    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    // Throws stoSchemaNotInMemoryException when the synthesiser requires
    // in-memory schemas and this class's schema is not.
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;
    // Another class of the same schema object (schema and name).
    int operator==(stoType const& other) const override;
    void const* cast(stoType const& t, void const* p) const override;
    unsigned int hash() const override;

    int operator==(stoClass const& other) const { return stoSchemaObject::operator==(other); }
    int operator!=(stoClass const& other) const { return !(*this == other); }
    using stoType::handle;
    using stoSchemaObject::name;
    using stoSchemaObject::schema;

    // p, an object seen as class `from`, converted to this class's
    // sub-object of the same object; null when unrelated or ambiguous.
    void* dynamic_cast_from(stoClass const* from, void* p) const;
    void const* dynamic_cast_from(stoClass const* from, void const* p) const;

    int is_abstract() const { return m_make_new == nullptr; }
    stoMapper const* mapper() const { return m_mapper; }
    int is_built() const { return m_built; }

    int number_of_direct_members() const;
    // Asked for at every step of a member walk: once both counts are known
    // it costs two loads.
    int number_of_inherited_members() const
    {
        if (m_n_members >= 0 && m_n_indirect_members >= 0)
            return m_n_indirect_members + m_n_members;
        return number_of_indirect_members() + number_of_direct_members();
    }
    // First member, in table order, declared by the class named class_name
    // with the name member_name; the invalid handle when none.
    stoMemberHandle find_member(utString const& class_name, utString const& member_name) const;
    stoMember const* member(stoMemberHandle h) const { return member_instance(h).member(); }
    int offset(stoMemberHandle h) const { return member_instance(h).offset(); }

    // 1 when t is this class or reached on exactly one path of bases.
    int is_compatible_with(stoTypeHandle const& t) const;
    // The flattened member table, finished on demand;
    // number_of_inherited_members() entries.
    stoMemberInstance const* inherited_member_table() const
    {
        finish();
        return m_inherited_members;
    }

    stoBase const* first_base() const;
    stoMember const* first_member() const;

    void build() const;
    void finish() const;

protected:
    friend class stoBuilder;
    friend class stoInheritedMemberIT;
    stoClass();

    void const* static_cast_up(stoClass const* cls, void const* p) const;
    stoObjectPtr true_class(void const* p) const;
    int number_of_indirect_members() const;
    static int inherited_members_size(void const* cls);
    stoMemberInstance const& member_instance(stoMemberHandle h) const;
    void copy_members(int offset, stoMemberInstance* dest) const;

    int m_size;
    BuildFn m_build;
    MakeNewFn m_make_new;
    DeleteFn m_delete;
    MakeNewArrayFn m_make_new_array;
    DeleteArrayFn m_delete_array;
    TrueClassFn m_true_class;
    mutable void* m_prototype;
    mutable int m_built;
    mutable stoBase* m_base_chain;
    mutable int m_n_members;
    mutable stoMember* m_member_chain;
    mutable int m_n_indirect_members;
    mutable stoMemberInstance* m_inherited_members;
    stoMapper const* m_mapper;
    // The hash of a class of an in-memory schema, computed once: tables keyed
    // by live objects hash their class on every look-up.
    mutable unsigned int m_hash = 0;
    mutable int m_hash_known = 0;
};
STO_DECLARE_CLASS(stoClass)

// Iterators start before the first element; operator++ moves and answers
// whether there is a current element.
class stoClassBaseIT {
public:
    explicit stoClassBaseIT(stoClass const* cls);
    int operator++();
    stoBase const* operator()() const { return m_current; }

private:
    stoClass const* m_class;
    stoBase const* m_current;
    int m_started;
};

class stoClassMemberIT {
public:
    explicit stoClassMemberIT(stoClass const* cls);
    int operator++();
    stoMember const* operator()() const { return m_current; }

private:
    stoClass const* m_class;
    stoMember const* m_current;
    int m_started;
};

class stoInheritedMemberIT {
public:
    explicit stoInheritedMemberIT(stoClass const* cls) : m_class(cls), m_handle(-1) {}
    int operator++();
    stoMember const* operator()() const { return m_class->member(m_handle); }
    stoMemberHandle handle() const { return m_handle; }
    int offset() const { return m_class->offset(m_handle); }
    int undefined() const { return m_handle.invalid(); }

private:
    stoClass const* m_class;
    stoMemberHandle m_handle;
};
