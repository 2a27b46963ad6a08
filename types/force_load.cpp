#include "types/array.h"
#include "types/basic.h"
#include "types/binding.h"
#include "types/class.h"
#include "types/system.h"
#include "values/mapper.h"
#include "values/pointer_types.h"
#include "values/value.h"

void sto_force_load()
{
    sto_class_stoArraySize();
    sto_class_stoArrayType();
    sto_class_stoArrayValue();
    sto_class_stoBase();
    sto_class_stoBasic();
    sto_class_stoByteArrayType();
    sto_class_stoClass();
    sto_class_stoClassMapper();
    sto_class_stoDoubleType();
    sto_class_stoDoubleValue();
    sto_class_stoFixedArrayType();
    sto_class_stoIntType();
    sto_class_stoIntValue();
    sto_class_stoMappedType();
    sto_class_stoMapper();
    sto_class_stoMember();
    sto_class_stoMemberInstance();
    sto_class_stoMethodArraySize();
    sto_class_stoObject();
    sto_class_stoOffsetArraySize();
    sto_class_stoPrfType();
    sto_class_stoPrfValue();
    sto_class_stoPrgType();
    sto_class_stoPrgValue();
    sto_class_stoPtrType();
    sto_class_stoPtrValue();
    sto_class_stoSchema();
    sto_class_stoSchemaObject();
    sto_class_stoStringType();
    sto_class_stoStringValue();
    sto_class_stoStub();
    sto_class_stoStubbable();
    sto_class_stoSystem();
    sto_class_stoType();
    sto_class_stoTypeHandleType();
    sto_class_stoTypeHandleValue();
    sto_class_stoValue();
    sto_class_stoVariableArrayType();
    sto_class_stoSchemaBinding();
    sto_class_stoSchemaID();
    sto_class_stoSchemaLink();
    sto_class_stoSchemaMapperBinding();
    sto_class_stoSchemaTypeBinding();
    sto_class_stoMappedValue();
    // The basic types are made on first use; a file may name them before
    // any class of the program has used them.
    sto_type_int();
    sto_type_double();
    sto_type_utString();
    sto_type_stoByteArray();
}

void sto_finish_values()
{
    for (stoClass const* (*cls)() :
         {sto_class_stoValue, sto_class_stoIntValue, sto_class_stoDoubleValue, sto_class_stoStringValue,
          sto_class_stoTypeHandleValue, sto_class_stoObject, sto_class_stoPtrValue, sto_class_stoPrgValue,
          sto_class_stoPrfValue, sto_class_stoArrayValue, sto_class_stoStub, sto_class_stoMappedValue,
          sto_class_stoByteArrayValue})
        cls()->finish();
}
