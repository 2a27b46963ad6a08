// The basic types, leaves of every persistent structure: integers ("int", 4
// or 8 bytes), doubles ("double"), strings ("utString") and byte arrays
// ("stoByteArray"). Each is a named type of the "store" schema and exists once
// per process: `make()` answers a handle to the shared instance.
//
//   stoTypeHandle i = sto_type_int();
//   void* cell = i->create();        // an int holding stoIntType::null()
//   i->destroy(cell);
#pragma once

#include "platform/ut_string.h"
#include "types/persistent.h"
#include "types/system.h"
#include "types/type.h"

// A shared, reference-counted block of bytes; copies share the block and the
// last one to let go frees it. An empty array holds no block.
class stoByteArray {
public:
    stoByteArray() : m_block(nullptr) {}
    // A block of n bytes, not initialised.
    explicit stoByteArray(int n);
    stoByteArray(unsigned char const* bytes, int n);
    stoByteArray(stoByteArray const& other) : m_block(nullptr) { assign_from(other); }
    stoByteArray& operator=(stoByteArray const& other);
    ~stoByteArray() { decrement(); }

    unsigned char* array() const;
    int size() const;
    int invalid() const { return m_block == nullptr; }
    // Same length and bytes (two empty arrays are equal).
    int operator==(stoByteArray const& other) const;
    // Number of arrays sharing the block; 0 for an empty array.
    int share_count() const { return m_block ? count() : 0; }

protected:
    void assign_from(stoByteArray const& other);
    int& count() const;
    void decrement();

    void* m_block;
};

class stoBasic : public stoType, public stoSchemaObject {
    STO_PERSISTENT(stoBasic)
public:
    int size() const override { return m_size; }
    virtual utString name() const { return m_name; }
    int process(stoProcessType* p) const override;
    // Same kind of basic type; width and name are not compared.
    int operator==(stoType const& other) const override;
    unsigned int hash() const override;
    void destroy_array(void* p, int n) const override;

protected:
    stoBasic(stoSchema* schema, utString const& name, int size);
    stoBasic() : m_size(0) {}

    static double raw_to_double(stoRawPtr const& p);
    static void double_to_raw(double v, stoRWRawPtr const& p);

    int m_size;
};
STO_DECLARE_CLASS(stoBasic)

class stoIntType : public stoBasic {
    STO_PERSISTENT(stoIntType)
public:
    static stoTypeHandle make();
    // The same "int" type over 8 bytes, for arrays of 64-bit integers, whose
    // elements are as wide as their type. The store schema owns it as an
    // anonymous type, so the schema still names one "int".
    static stoTypeHandle make_wide();
    static int null() { return 2147483646; }

    int process(stoProcessType* p) const override;
    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;

    // The signed integer at p, sign-extended; -666 when p is neither 4 nor 8 bytes wide.
    static long long raw_to_int(stoRawPtr const& p);
    // Stores v at p; throws stoIntTooBigException when v does not fit the width.
    static void int_to_raw(long long v, stoRWRawPtr const& p);

protected:
    stoIntType(stoSchema* schema, int size) : stoBasic(schema, "int", size) {}
    stoIntType() = default;
};
STO_DECLARE_CLASS(stoIntType)

class stoDoubleType : public stoBasic {
    STO_PERSISTENT(stoDoubleType)
public:
    static stoTypeHandle make();
    static double null() { return 9.9e300; }

    int process(stoProcessType* p) const override;
    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;

    using stoBasic::double_to_raw;
    using stoBasic::raw_to_double;

protected:
    explicit stoDoubleType(stoSchema* schema) : stoBasic(schema, "double", 8) {}
    stoDoubleType() = default;
};
STO_DECLARE_CLASS(stoDoubleType)

class stoStringType : public stoBasic {
    STO_PERSISTENT(stoStringType)
public:
    static stoTypeHandle make();
    static utString null();

    int process(stoProcessType* p) const override;
    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;

protected:
    explicit stoStringType(stoSchema* schema) : stoBasic(schema, "utString", static_cast<int>(sizeof(utString))) {}
    stoStringType() = default;
};
STO_DECLARE_CLASS(stoStringType)

class stoByteArrayType : public stoBasic {
    STO_PERSISTENT(stoByteArrayType)
public:
    static stoTypeHandle make();

    int process(stoProcessType* p) const override;
    stoValue* raw_to_value(stoAnalyser* analyser, stoRawPtr const& p) const override;
    void value_to_raw(stoSynthesiser* synthesiser, stoValue const* value, stoRWRawPtr const& p) const override;
    void* create() const override;
    void destroy(void* p) const override;
    void* create_array(int n) const override;
    void destroy_array(void* p, int n) const override;

    // The type's declared base is stoType alone, so the store's own casts
    // never see it as a basic type or a schema object, and its records carry
    // only the type's member. It is both in C++ all the same, and the places
    // that name types by schema and name (stubs, bindings) view it so
    // through this: `whole` is the address of a byte-array type, the answer
    // its part of class `target`, or null for a class it is not.
    static void const* view_as(stoClass const* target, void const* whole);

protected:
    explicit stoByteArrayType(stoSchema* schema)
        : stoBasic(schema, "stoByteArray", static_cast<int>(sizeof(stoByteArray))) {}
    // Rebuilt from a record that holds neither name nor size: there is only
    // one kind of byte array, so both are known.
    stoByteArrayType();
};
STO_DECLARE_CLASS(stoByteArrayType)

// The handles by which application classes declare basic members.
stoTypeHandle sto_type_int();
stoTypeHandle sto_type_utBool();
stoTypeHandle sto_type_double();
stoTypeHandle sto_type_utString();
stoTypeHandle sto_type_stoByteArray();
