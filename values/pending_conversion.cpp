// Conversions between live objects and values belong to the value model,
// which is not in this build yet: every entry point says so loudly rather
// than guess.
#include "types/array.h"
#include "types/basic.h"
#include "types/class.h"
#include "types/schema_id.h"
#include "types/system.h"
#include "values/mapper.h"
#include "values/pointer_types.h"

#include <stdexcept>

namespace {
[[noreturn]] void unavailable(char const* what)
{
    throw std::logic_error(std::string(what) + ": value conversion is not available in this build");
}
}  // namespace

stoValue* stoIntType::raw_to_value(stoAnalyser*, stoRawPtr const&) const { unavailable("stoIntType::raw_to_value"); }
void stoIntType::value_to_raw(stoSynthesiser*, stoValue const*, stoRWRawPtr const&) const { unavailable("stoIntType::value_to_raw"); }
stoValue* stoDoubleType::raw_to_value(stoAnalyser*, stoRawPtr const&) const { unavailable("stoDoubleType::raw_to_value"); }
void stoDoubleType::value_to_raw(stoSynthesiser*, stoValue const*, stoRWRawPtr const&) const { unavailable("stoDoubleType::value_to_raw"); }
stoValue* stoStringType::raw_to_value(stoAnalyser*, stoRawPtr const&) const { unavailable("stoStringType::raw_to_value"); }
void stoStringType::value_to_raw(stoSynthesiser*, stoValue const*, stoRWRawPtr const&) const { unavailable("stoStringType::value_to_raw"); }
stoValue* stoByteArrayType::raw_to_value(stoAnalyser*, stoRawPtr const&) const { unavailable("stoByteArrayType::raw_to_value"); }
void stoByteArrayType::value_to_raw(stoSynthesiser*, stoValue const*, stoRWRawPtr const&) const { unavailable("stoByteArrayType::value_to_raw"); }
void stoClass::value_to_raw(stoSynthesiser*, stoValue const*, stoRWRawPtr const&) const { unavailable("stoClass::value_to_raw"); }
stoValue* stoFixedArrayType::raw_to_value(stoAnalyser*, stoRawPtr const&) const { unavailable("stoFixedArrayType::raw_to_value"); }
void stoFixedArrayType::value_to_raw(stoSynthesiser*, stoValue const*, stoRWRawPtr const&) const { unavailable("stoFixedArrayType::value_to_raw"); }
stoValue* stoVariableArrayType::raw_to_value(stoAnalyser*, stoRawPtr const&) const { unavailable("stoVariableArrayType::raw_to_value"); }
void stoVariableArrayType::value_to_raw(stoSynthesiser*, stoValue const*, stoRWRawPtr const&) const { unavailable("stoVariableArrayType::value_to_raw"); }
stoValue* stoPtrType::raw_to_value(stoAnalyser*, stoRawPtr const&) const { unavailable("stoPtrType::raw_to_value"); }
void stoPtrType::value_to_raw(stoSynthesiser*, stoValue const*, stoRWRawPtr const&) const { unavailable("stoPtrType::value_to_raw"); }
stoPtrValue* stoPtrType::create_null() const { unavailable("stoPtrType::create_null"); }
stoPtrValue* stoPrgType::create_null() const { unavailable("stoPrgType::create_null"); }
stoPtrValue* stoPrfType::create_null() const { unavailable("stoPrfType::create_null"); }
stoPtrValue* stoTypeHandleType::create_null() const { unavailable("stoTypeHandleType::create_null"); }
stoValue* stoStandardMapper::raw_to_value(stoAnalyser*, stoRawPtr const&) const { unavailable("stoStandardMapper::raw_to_value"); }
void stoStandardMapper::value_to_raw(stoSynthesiser*, stoValue const*, stoRWRawPtr const&) const { unavailable("stoStandardMapper::value_to_raw"); }
stoValue* stoSystem::create_stub() const { unavailable("stoSystem::create_stub"); }
stoValue* stoSchema::create_stub() const { unavailable("stoSchema::create_stub"); }
stoValue* stoSchemaObject::create_stub() const { unavailable("stoSchemaObject::create_stub"); }
stoValue* stoMember::create_stub() const { unavailable("stoMember::create_stub"); }
stoValue* stoSchemaID::create_stub() const { unavailable("stoSchemaID::create_stub"); }
