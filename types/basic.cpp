#include "types/basic.h"

#include "support/exceptions.h"
#include "types/class.h"
#include "types/describe.h"
#include "values/visitors.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

// ------------------------------------------------------------- stoByteArray
//
// One allocation: 32-bit byte count, 32-bit reference count, then the bytes.

namespace {
struct ByteBlockHeader {
    std::int32_t size;
    std::int32_t refs;
};
}  // namespace

stoByteArray::stoByteArray(int n) : m_block(nullptr)
{
    if (n < 0)
        throw std::bad_array_new_length();
    m_block = ::operator new(sizeof(ByteBlockHeader) + static_cast<std::size_t>(n));
    ByteBlockHeader* header = static_cast<ByteBlockHeader*>(m_block);
    header->size = n;
    header->refs = 1;
}

stoByteArray::stoByteArray(unsigned char const* bytes, int n) : stoByteArray(n)
{
    if (n > 0)
        std::memcpy(array(), bytes, static_cast<std::size_t>(n));
}

stoByteArray& stoByteArray::operator=(stoByteArray const& other)
{
    if (m_block != other.m_block) {
        void* old = m_block;
        m_block = nullptr;
        assign_from(other);
        stoByteArray released;
        released.m_block = old;
    }
    return *this;
}

unsigned char* stoByteArray::array() const
{
    return m_block ? reinterpret_cast<unsigned char*>(static_cast<ByteBlockHeader*>(m_block) + 1) : nullptr;
}

int stoByteArray::size() const { return m_block ? static_cast<ByteBlockHeader*>(m_block)->size : 0; }

int stoByteArray::operator==(stoByteArray const& other) const
{
    if (m_block == other.m_block)
        return 1;
    if (size() != other.size())
        return 0;
    return size() == 0 || std::memcmp(array(), other.array(), static_cast<std::size_t>(size())) == 0;
}

void stoByteArray::assign_from(stoByteArray const& other)
{
    m_block = other.m_block;
    if (m_block)
        ++count();
}

int& stoByteArray::count() const { return static_cast<ByteBlockHeader*>(m_block)->refs; }

void stoByteArray::decrement()
{
    if (m_block && --count() == 0)
        ::operator delete(m_block);
    m_block = nullptr;
}

// ----------------------------------------------------------------- stoBasic

stoBasic::stoBasic(stoSchema* schema, utString const& name, int size) : stoSchemaObject(schema, name), m_size(size)
{
    schema->add_basic(this, this);
}

int stoBasic::process(stoProcessType* p) const { return p->process_stoBasic(this); }

int stoBasic::operator==(stoType const& other) const
{
    return *sto_dynamic_class() == *other.sto_dynamic_class();
}

unsigned int stoBasic::hash() const { return co_hash(m_name); }

void stoBasic::destroy_array(void* p, int) const { delete[] static_cast<char*>(p); }

double stoBasic::raw_to_double(stoRawPtr const& p)
{
    double v;
    std::memcpy(&v, p.ptr(), sizeof v);
    return v;
}

void stoBasic::double_to_raw(double v, stoRWRawPtr const& p) { std::memcpy(p.write_ptr(), &v, sizeof v); }

// The shared instances live in the store schema, which owns them; the
// handles are kept here.
#define STO_SHARED_BASIC(KIND, ...)                                  \
    stoTypeHandle KIND::make()                                       \
    {                                                                \
        static stoTypeHandle s_handle;                               \
        if (s_handle.is_null())                                      \
            s_handle = (new KIND(sto_schema_sto_schema() __VA_OPT__(,) __VA_ARGS__))->handle(); \
        return s_handle;                                             \
    }

// --------------------------------------------------------------- stoIntType

STO_SHARED_BASIC(stoIntType, 4)

stoTypeHandle stoIntType::make_wide()
{
    static stoTypeHandle s_handle;
    if (s_handle.is_null()) {
        stoSchema* store = sto_schema_sto_schema();
        stoIntType* wide = new stoIntType();
        wide->m_schema = store;
        wide->m_name = "int";
        wide->m_size = 8;
        store->add_unnamed_type(wide->handle());
        s_handle = wide->handle();
    }
    return s_handle;
}

int stoIntType::process(stoProcessType* p) const { return p->process_stoIntType(this); }

// Instances are as wide as the type: 4 bytes, or 8 for the wide int.
void* stoIntType::create() const
{
    if (m_size == 8)
        return new std::int64_t(null());
    return new std::int32_t(null());
}

void stoIntType::destroy(void* p) const
{
    if (m_size == 8)
        delete static_cast<std::int64_t*>(p);
    else
        delete static_cast<std::int32_t*>(p);
}

void* stoIntType::create_array(int n) const
{
    if (m_size == 8)
        return new std::int64_t[static_cast<std::size_t>(n)];
    return new std::int32_t[static_cast<std::size_t>(n)];
}

void stoIntType::destroy_array(void* p, int) const
{
    if (m_size == 8)
        delete[] static_cast<std::int64_t*>(p);
    else
        delete[] static_cast<std::int32_t*>(p);
}

long long stoIntType::raw_to_int(stoRawPtr const& p)
{
    if (p.size() == 4) {
        std::int32_t v;
        std::memcpy(&v, p.ptr(), sizeof v);
        return v;
    }
    if (p.size() == 8) {
        std::int64_t v;
        std::memcpy(&v, p.ptr(), sizeof v);
        return v;
    }
    return -666;
}

void stoIntType::int_to_raw(long long v, stoRWRawPtr const& p)
{
    if (p.size() == 4) {
        if (v < std::numeric_limits<std::int32_t>::min() || v > std::numeric_limits<std::int32_t>::max())
            throw new stoIntTooBigException();
        std::int32_t narrow = static_cast<std::int32_t>(v);
        std::memcpy(p.write_ptr(), &narrow, sizeof narrow);
        return;
    }
    if (p.size() == 8) {
        std::int64_t wide = v;
        std::memcpy(p.write_ptr(), &wide, sizeof wide);
        return;
    }
    throw new stoIntTooBigException();
}

// ------------------------------------------------------------ stoDoubleType

STO_SHARED_BASIC(stoDoubleType)

int stoDoubleType::process(stoProcessType* p) const { return p->process_stoDoubleType(this); }

void* stoDoubleType::create() const { return new double(null()); }
void stoDoubleType::destroy(void* p) const { delete static_cast<double*>(p); }
void* stoDoubleType::create_array(int n) const { return new double[static_cast<std::size_t>(n)]; }
void stoDoubleType::destroy_array(void* p, int) const { delete[] static_cast<double*>(p); }

// ------------------------------------------------------------ stoStringType

STO_SHARED_BASIC(stoStringType)

utString stoStringType::null() { return utString("<stoStringType::null>"); }

int stoStringType::process(stoProcessType* p) const { return p->process_stoStringType(this); }

void* stoStringType::create() const { return new utString(null()); }
void stoStringType::destroy(void* p) const { delete static_cast<utString*>(p); }

void* stoStringType::create_array(int n) const
{
    utString* strings = new utString[static_cast<std::size_t>(n)];
    for (int i = 0; i < n; ++i)
        strings[i] = utString("");
    return strings;
}

void stoStringType::destroy_array(void* p, int) const { delete[] static_cast<utString*>(p); }

// --------------------------------------------------------- stoByteArrayType

STO_SHARED_BASIC(stoByteArrayType)

stoByteArrayType::stoByteArrayType()
{
    m_name = "stoByteArray";
    m_size = static_cast<int>(sizeof(stoByteArray));
}

void const* stoByteArrayType::view_as(stoClass const* target, void const* whole)
{
    auto const* type = static_cast<stoByteArrayType const*>(whole);
    if (!target || !whole)
        return nullptr;
    if (*target == *sto_class_stoByteArrayType())
        return whole;
    if (*target == *sto_class_stoBasic())
        return static_cast<stoBasic const*>(type);
    if (*target == *sto_class_stoType())
        return static_cast<stoType const*>(type);
    if (*target == *sto_class_stoSchemaObject())
        return static_cast<stoSchemaObject const*>(type);
    if (*target == *sto_class_stoStubbable())
        return static_cast<stoStubbable const*>(type);
    return nullptr;
}

int stoByteArrayType::process(stoProcessType* p) const { return p->process_stoByteArrayType(this); }

void* stoByteArrayType::create() const { return new stoByteArray(); }
void stoByteArrayType::destroy(void* p) const { delete static_cast<stoByteArray*>(p); }
void* stoByteArrayType::create_array(int n) const { return new stoByteArray[static_cast<std::size_t>(n)]; }
void stoByteArrayType::destroy_array(void* p, int) const { delete[] static_cast<stoByteArray*>(p); }

// ---------------------------------------------------------------- accessors

stoTypeHandle sto_type_int() { return stoIntType::make(); }
stoTypeHandle sto_type_utBool() { return sto_type_int(); }
stoTypeHandle sto_type_double() { return stoDoubleType::make(); }
stoTypeHandle sto_type_utString() { return stoStringType::make(); }
stoTypeHandle sto_type_stoByteArray() { return stoByteArrayType::make(); }

// ------------------------------------------------------------ descriptions

STO_ABSTRACT_CLASS(stoBasic, sto_schema_sto_schema())
{
    STO_BASE(stoType);
    STO_BASE(stoSchemaObject);
    STO_MEMBER(m_size);
}

STO_CLASS(stoIntType, sto_schema_sto_schema())
{
    STO_BASE(stoBasic);
}

STO_CLASS(stoDoubleType, sto_schema_sto_schema())
{
    STO_BASE(stoBasic);
}

STO_CLASS(stoStringType, sto_schema_sto_schema())
{
    STO_BASE(stoBasic);
}

// Declared on stoType rather than stoBasic: byte arrays were described
// before they became basic types, and files keep that description.
STO_CLASS(stoByteArrayType, sto_schema_sto_schema())
{
    STO_BASE(stoType);
}
