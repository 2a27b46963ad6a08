#include "values/visitors.h"

#include "types/array.h"
#include "types/basic.h"
#include "types/class.h"
#include "values/mapper.h"
#include "values/pointer_types.h"
#include "values/value.h"

int stoProcessType::process_stoBasic(stoBasic const* t) { return process_stoType(t); }
int stoProcessType::process_stoIntType(stoIntType const* t) { return process_stoBasic(t); }
int stoProcessType::process_stoDoubleType(stoDoubleType const* t) { return process_stoBasic(t); }
int stoProcessType::process_stoStringType(stoStringType const* t) { return process_stoBasic(t); }
int stoProcessType::process_stoTypeHandleType(stoTypeHandleType const* t) { return process_stoPtrType(t); }
int stoProcessType::process_stoPtrType(stoPtrType const* t) { return process_stoType(t); }
int stoProcessType::process_stoPrgType(stoPrgType const* t) { return process_stoPtrType(t); }
int stoProcessType::process_stoPrfType(stoPrfType const* t) { return process_stoPtrType(t); }
int stoProcessType::process_stoArrayType(stoArrayType const* t) { return process_stoType(t); }
int stoProcessType::process_stoFixedArrayType(stoFixedArrayType const* t) { return process_stoArrayType(t); }
int stoProcessType::process_stoVariableArrayType(stoVariableArrayType const* t) { return process_stoArrayType(t); }
int stoProcessType::process_stoMappedType(stoMappedType const* t) { return process_stoType(t); }
int stoProcessType::process_stoClass(stoClass const* t) { return process_stoType(t); }
int stoProcessType::process_stoByteArrayType(stoByteArrayType const* t) { return process_stoBasic(t); }

int stoProcessValue::process_stoIntValue(stoIntValue const* v) { return process_stoValue(v); }
int stoProcessValue::process_stoDoubleValue(stoDoubleValue const* v) { return process_stoValue(v); }
int stoProcessValue::process_stoStringValue(stoStringValue const* v) { return process_stoValue(v); }
int stoProcessValue::process_stoByteArrayValue(stoByteArrayValue const* v) { return process_stoValue(v); }
int stoProcessValue::process_stoTypeHandleValue(stoTypeHandleValue const* v) { return process_stoPtrValue(v); }
int stoProcessValue::process_stoObject(stoObject const* v) { return process_stoValue(v); }
int stoProcessValue::process_stoPtrValue(stoPtrValue const* v) { return process_stoValue(v); }
int stoProcessValue::process_stoPrgValue(stoPrgValue const* v) { return process_stoPtrValue(v); }
int stoProcessValue::process_stoPrfValue(stoPrfValue const* v) { return process_stoPtrValue(v); }
int stoProcessValue::process_stoArrayValue(stoArrayValue const* v) { return process_stoValue(v); }
int stoProcessValue::process_stoStub(stoStub const* v) { return process_stoValue(v); }
int stoProcessValue::process_stoMappedValue(stoMappedValue const* v) { return process_stoValue(v); }
