// Array types: fixed arrays laid out in place, and variable arrays held
// through a pointer to a separate block whose element count comes from the
// object, either from another int member (stoOffsetArraySize) or from a
// function of the object (stoMethodArraySize).
//
// Array types are anonymous: each is made while a class is described and is
// owned by the class's schema as an unnamed type.
#pragma once

#include "platform/ut_string.h"
#include "types/persistent.h"
#include "types/type.h"

class stoMember;

class stoArraySize {
    STO_PERSISTENT(stoArraySize)
public:
    // The element count of the array member `member` whose storage is at
    // member_address inside some object.
    virtual int array_size(stoMember const* member, void const* member_address) const = 0;
    virtual ~stoArraySize() = default;

protected:
    stoArraySize() = default;
};
STO_DECLARE_CLASS(stoArraySize)

class stoOffsetArraySize : public stoArraySize {
    STO_PERSISTENT(stoOffsetArraySize)
public:
    explicit stoOffsetArraySize(stoMember const* size_member) : m_size_member(size_member) {}
    stoOffsetArraySize() : m_size_member(nullptr) {}
    int array_size(stoMember const* member, void const* member_address) const override;
    stoMember const* size_member() const { return m_size_member; }

protected:
    stoMember const* m_size_member;
};
STO_DECLARE_CLASS(stoOffsetArraySize)

class stoMethodArraySize : public stoArraySize {
    STO_PERSISTENT(stoMethodArraySize)
public:
    using CountFn = int (*)(void const*);
    stoMethodArraySize(utString const& name, CountFn count) : m_method_name(name), m_count(count) {}
    stoMethodArraySize() : m_method_name(""), m_count(nullptr) {}
    // A size object rebuilt from a file has only the name, and answers 0.
    int array_size(stoMember const* member, void const* member_address) const override;
    utString method_name() const { return m_method_name; }

protected:
    utString m_method_name;
    CountFn m_count;
};
STO_DECLARE_CLASS(stoMethodArraySize)

class stoArrayType : public stoType {
    STO_PERSISTENT(stoArrayType)
public:
    stoTypeHandle element_type() const { return m_type; }

protected:
    explicit stoArrayType(stoTypeHandle const& element) : m_type(element) {}
    stoArrayType() = default;

    stoTypeHandle m_type;
};
STO_DECLARE_CLASS(stoArrayType)

class stoFixedArrayType : public stoArrayType {
    STO_PERSISTENT(stoFixedArrayType)
public:
    // A new type on every call; the caller decides its owner.
    static stoTypeHandle make(stoTypeHandle const& element, int count);

    int number_of_elements() const { return m_n_elements; }

    int process(stoProcessType* p) const override;
    int size() const override;
    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    // Writes at most as many elements as the array holds.
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;
    int operator==(stoType const& other) const override;
    unsigned int hash() const override;

protected:
    stoFixedArrayType(stoTypeHandle const& element, int count) : stoArrayType(element), m_n_elements(count) {}
    stoFixedArrayType() : m_n_elements(0) {}

    int m_n_elements;
};
STO_DECLARE_CLASS(stoFixedArrayType)

class stoVariableArrayType : public stoArrayType {
    STO_PERSISTENT(stoVariableArrayType)
public:
    // A new type on every call; it takes ownership of `size`.
    static stoTypeHandle make(stoTypeHandle const& element, stoMember const* member, stoArraySize* size);
    // The private address that marks an array created but never filled.
    static void* unset_array();

    virtual ~stoVariableArrayType();
    stoMember const* member() const { return m_member; }
    stoArraySize const* array_size() const { return m_array_size; }

    int process(stoProcessType* p) const override;
    int size() const override { return static_cast<int>(sizeof(void*)); }
    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;
    int operator==(stoType const& other) const override;
    unsigned int hash() const override;

protected:
    stoVariableArrayType(stoTypeHandle const& element, stoMember const* member, stoArraySize* size)
        : stoArrayType(element), m_member(member), m_array_size(size) {}
    stoVariableArrayType() : m_member(nullptr), m_array_size(nullptr) {}

    stoMember const* m_member;
    stoArraySize* m_array_size;
};
STO_DECLARE_CLASS(stoVariableArrayType)
