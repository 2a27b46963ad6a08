// stoTypeHandle and stoObjectPtr: the small value types by which the whole
// store refers to meta types and to live objects of persistent classes.
//
// A handle owns nothing and does not count references: it stays valid as
// long as the schema that owns its type exists. Handles compare structurally
// (two separately made but equal types give equal handles), so they serve as
// keys of sets and tables.
#pragma once

class stoType;
class stoClass;

class stoTypeHandle {
public:
    stoTypeHandle() : m_type(nullptr) {}
    stoTypeHandle(stoTypeHandle const& other) : m_type(nullptr) { copy(other); }
    stoTypeHandle& operator=(stoTypeHandle const& other)
    {
        copy(other);
        return *this;
    }

    stoType const* type() const { return m_type; }
    stoType const* operator->() const { return m_type; }
    stoType const& operator*() const { return *m_type; }
    int is_null() const { return m_type == nullptr; }

    // Same type object (both null included), else the left type's structural
    // equality when both are set.
    int operator==(stoTypeHandle const& other) const;
    int operator!=(stoTypeHandle const& other) const { return !(*this == other); }

protected:
    friend class stoType;
    friend class stoTypeHandleType;
    explicit stoTypeHandle(stoType const* type) : m_type(const_cast<stoType*>(type)) {}
    void copy(stoTypeHandle const& other) { m_type = other.m_type; }

    stoType* m_type;
};

// 0 for the null handle, else the type's hash.
unsigned int co_hash(stoTypeHandle const& handle);
unsigned int co_hash(stoType const& type);

// (true class, address): what every persistent object's `sto_object()` answers.
class stoObjectPtr {
public:
    stoObjectPtr() : m_class(nullptr), m_ptr(nullptr) {}
    stoObjectPtr(stoClass const* cls, void const* ptr) : m_class(cls), m_ptr(ptr) {}
    stoClass const* type() const { return m_class; }
    void const* ptr() const { return m_ptr; }

private:
    stoClass const* m_class;
    void const* m_ptr;
};
