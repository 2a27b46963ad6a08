#include "types/class.h"

#include "support/exceptions.h"
#include "types/builder.h"
#include "types/describe.h"
#include "values/mapper.h"
#include "values/visitors.h"

#include <cstdlib>
#include <cstring>
#include <new>

// ------------------------------------------------------------------ stoBase

stoBase::~stoBase()
{
    // Iteratively, so that a long chain cannot exhaust the stack.
    stoBase* next = m_next_base;
    m_next_base = nullptr;
    while (next) {
        stoBase* after = next->m_next_base;
        next->m_next_base = nullptr;
        delete next;
        next = after;
    }
}

// ---------------------------------------------------------------- stoMember

stoMember::~stoMember()
{
    stoMember* next = m_next_member;
    m_next_member = nullptr;
    while (next) {
        stoMember* after = next->m_next_member;
        next->m_next_member = nullptr;
        delete next;
        next = after;
    }
}

// ----------------------------------------------------------------- stoClass

stoClass::stoClass(stoSchema* schema, utString const& name, int size, BuildFn build, MakeNewFn make_new,
                   DeleteFn del, MakeNewArrayFn make_new_array, DeleteArrayFn delete_array, TrueClassFn true_class,
                   stoMapper const* mapper)
    : stoSchemaObject(schema, name),
      m_size(size),
      m_build(build),
      m_make_new(make_new),
      m_delete(del),
      m_make_new_array(make_new_array),
      m_delete_array(delete_array),
      m_true_class(true_class),
      m_prototype(nullptr),
      m_built(0),
      m_base_chain(nullptr),
      m_n_members(-1),
      m_member_chain(nullptr),
      m_n_indirect_members(-1),
      m_inherited_members(nullptr),
      m_mapper(mapper)
{
    m_is_class = 1;
    schema->add_basic(this, this);
}

stoClass::stoClass()
    : m_size(0),
      m_build(nullptr),
      m_make_new(nullptr),
      m_delete(nullptr),
      m_make_new_array(nullptr),
      m_delete_array(nullptr),
      m_true_class(nullptr),
      m_prototype(nullptr),
      m_built(0),
      m_base_chain(nullptr),
      m_n_members(-1),
      m_member_chain(nullptr),
      m_n_indirect_members(-1),
      m_inherited_members(nullptr),
      m_mapper(nullptr)
{
    m_is_class = 1;
}

stoClass::~stoClass()
{
    if (m_prototype) {
        if (m_delete)
            m_delete(m_prototype);
        else
            std::free(m_prototype);
        m_prototype = nullptr;
    }
    delete[] m_inherited_members;
    delete m_member_chain;
    delete m_base_chain;
}

int stoClass::process(stoProcessType* p) const { return p->process_stoClass(this); }

stoObjectPtr stoClass::true_class(void const* p) const
{
    // A class rebuilt from a file has no functions: its instances are taken
    // as they are seen.
    return m_true_class ? m_true_class(p) : stoObjectPtr(this, p);
}

stoRawPtr stoClass::true_type(void const* p) const
{
    if (!p)
        return stoRawPtr(handle(), nullptr, size());
    return stoRawPtr(true_class(p));
}

void* stoClass::create() const { return m_make_new ? m_make_new() : nullptr; }
void stoClass::destroy(void* p) const
{
    if (m_delete)
        m_delete(p);
}
void* stoClass::create_array(int n) const { return m_make_new_array ? m_make_new_array(n) : nullptr; }
void stoClass::destroy_array(void* p, int n) const
{
    if (m_delete_array)
        m_delete_array(p, n);
}

int stoClass::operator==(stoType const& other) const
{
    stoObjectPtr o = other.sto_object();
    stoClass const* cls = stoClass::sto_dynamic_cast(o.type(), o.ptr());
    return cls && *this == *cls;
}

void const* stoClass::cast(stoType const& t, void const* p) const
{
    stoObjectPtr o = t.sto_object();
    stoClass const* from = stoClass::sto_dynamic_cast(o.type(), o.ptr());
    return from ? dynamic_cast_from(from, p) : nullptr;
}

unsigned int stoClass::hash() const
{
    if (m_hash_known)
        return m_hash;
    unsigned int h = sto_scramble(co_hash(stoSchemacoSetPtrcoPtr(m_schema)), 11) | co_hash(m_name);
    // A class rebuilt from a file gets its name and schema after it is made,
    // so only classes of saved schemas keep their hash.
    if (m_schema && m_schema->in_memory()) {
        m_hash = h;
        m_hash_known = 1;
    }
    return h;
}

void const* stoClass::static_cast_up(stoClass const* cls, void const* p) const
{
    if (!p)
        return nullptr;
    if (*this == *cls)
        return p;
    void const* found = nullptr;
    stoClassBaseIT it(cls);
    while (++it) {
        stoBase const* base = it();
        void const* r = static_cast_up(base->base_class(), static_cast<char const*>(p) + base->offset());
        if (r) {
            if (found)
                return nullptr;  // reachable on two paths: ambiguous
            found = r;
        }
    }
    return found;
}

void const* stoClass::dynamic_cast_from(stoClass const* from, void const* p) const
{
    if (!p || !from)
        return nullptr;
    stoObjectPtr whole = from->true_class(p);
    if (!whole.type())
        return nullptr;
    return static_cast_up(whole.type(), whole.ptr());
}

void* stoClass::dynamic_cast_from(stoClass const* from, void* p) const
{
    return const_cast<void*>(dynamic_cast_from(from, static_cast<void const*>(p)));
}

void stoClass::build() const
{
    if (m_built)
        return;
    if (!m_prototype) {
        if (m_make_new) {
            m_prototype = create();
        } else {
            m_prototype = std::malloc(m_size > 0 ? static_cast<std::size_t>(m_size) : 1);
            if (!m_prototype)
                throw std::bad_alloc();
            std::memset(m_prototype, 0x66, m_size > 0 ? static_cast<std::size_t>(m_size) : 1);
        }
    }
    if (m_build) {
        stoBuilder builder(const_cast<stoClass*>(this));
        m_build(builder, m_prototype);
    }
    m_built = 1;
}

int stoClass::number_of_direct_members() const
{
    if (m_n_members < 0) {
        build();
        int n = 0;
        for (stoMember const* m = m_member_chain; m; m = m->next())
            ++n;
        m_n_members = n;
    }
    return m_n_members;
}

int stoClass::number_of_indirect_members() const
{
    if (m_n_indirect_members < 0) {
        build();
        int n = 0;
        for (stoBase const* b = m_base_chain; b; b = b->next())
            n += b->base_class()->number_of_inherited_members();
        m_n_indirect_members = n;
    }
    return m_n_indirect_members;
}

int stoClass::inherited_members_size(void const* cls)
{
    return static_cast<stoClass const*>(cls)->number_of_inherited_members();
}

void stoClass::finish() const
{
    if (m_inherited_members)
        return;
    int n = number_of_inherited_members();
    stoMemberInstance* table = new stoMemberInstance[static_cast<std::size_t>(n > 0 ? n : 1)];
    copy_members(0, table);
    m_inherited_members = table;
}

void stoClass::copy_members(int offset, stoMemberInstance* dest) const
{
    int k = 0;
    for (stoBase const* b = first_base(); b; b = b->next()) {
        b->base_class()->copy_members(offset + b->offset(), dest + k);
        k += b->base_class()->number_of_inherited_members();
    }
    for (stoMember const* m = first_member(); m; m = m->next())
        dest[k++] = stoMemberInstance(m->offset() + offset, m);
}

stoMemberInstance const& stoClass::member_instance(stoMemberHandle h) const
{
    if (!m_inherited_members)
        finish();
    return m_inherited_members[h.index()];
}

stoMemberHandle stoClass::find_member(utString const& class_name, utString const& member_name) const
{
    int n = number_of_inherited_members();
    for (int i = 0; i < n; ++i) {
        stoMember const* m = member(stoMemberHandle(i));
        if (m && m->declaring_class() && m->declaring_class()->name_ref() == class_name && m->name_ref() == member_name)
            return stoMemberHandle(i);
    }
    return stoMemberHandle();
}

int stoClass::is_compatible_with(stoTypeHandle const& t) const
{
    if (t.is_null())
        return 0;
    if (static_cast<stoType const&>(*this) == *t)
        return 1;
    int paths = 0;
    for (stoBase const* b = first_base(); b; b = b->next())
        paths += b->base_class()->is_compatible_with(t);
    return paths == 1;
}

stoBase const* stoClass::first_base() const
{
    build();
    return m_base_chain;
}

stoMember const* stoClass::first_member() const
{
    build();
    return m_member_chain;
}

stoValue* stoClass::raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const
{
    return m_mapper->raw_to_value(analyser, p);
}

// --------------------------------------------------------------- iterators

stoClassBaseIT::stoClassBaseIT(stoClass const* cls) : m_class(cls), m_current(nullptr), m_started(0)
{
    cls->build();
}

int stoClassBaseIT::operator++()
{
    if (!m_started) {
        m_started = 1;
        m_current = m_class->first_base();
    } else if (m_current) {
        m_current = m_current->next();
    }
    return m_current != nullptr;
}

stoClassMemberIT::stoClassMemberIT(stoClass const* cls) : m_class(cls), m_current(nullptr), m_started(0)
{
    cls->build();
}

int stoClassMemberIT::operator++()
{
    if (!m_started) {
        m_started = 1;
        m_current = m_class->first_member();
    } else if (m_current) {
        m_current = m_current->next();
    }
    return m_current != nullptr;
}

int stoInheritedMemberIT::operator++()
{
    int next = m_handle.index() + 1;
    if (next < m_class->number_of_inherited_members()) {
        m_handle = stoMemberHandle(next);
        return 1;
    }
    m_handle = stoMemberHandle(-1);
    return 0;
}

// ------------------------------------------------------------ stub identity

stoRawPtr stoMember::stub_parent() const
{
    return stoRawPtr(sto_type_stoClass(), m_class, sto_class_stoClass()->size());
}

stoRawPtr stoMember::stub_id() const
{
    return stoRawPtr(sto_type_utString(), &m_name, static_cast<int>(sizeof m_name));
}

// ------------------------------------------------------------ descriptions

STO_CLASS(stoClass, sto_schema_sto_schema())
{
    STO_BASE(stoType);
    STO_BASE(stoSchemaObject);
    STO_MEMBER(m_size);
    STO_OWNING_PTR(m_base_chain);
    STO_MEMBER(m_n_members);
    STO_OWNING_PTR(m_member_chain);
    STO_MEMBER(m_n_indirect_members);
    STO_METHOD_ARRAY(m_inherited_members, inherited_members_size);
}

STO_CLASS(stoBase, sto_schema_sto_schema())
{
    STO_MEMBER(m_base_class);
    STO_MEMBER(m_base_offset);
    STO_OWNING_PTR(m_next_base);
}

STO_CLASS(stoMember, sto_schema_sto_schema())
{
    STO_BASE(stoStubbable);
    STO_MEMBER(m_class);
    STO_MEMBER(m_type);
    STO_MEMBER(m_name);
    STO_MEMBER(m_offset);
    STO_OWNING_PTR(m_next_member);
}

STO_CLASS(stoMemberInstance, sto_schema_sto_schema())
{
    STO_MEMBER(m_member);
    STO_MEMBER(m_offset);
}
