// The two double-dispatch visitors: stoProcessValue over values and
// stoProcessType over meta types. Each default forwards to the operation of
// the visited class's base, so a visitor overrides only what it tells apart.
// Visitors do not walk children.
#pragma once

class stoValue;
class stoIntValue;
class stoDoubleValue;
class stoStringValue;
class stoByteArrayValue;
class stoTypeHandleValue;
class stoObject;
class stoPtrValue;
class stoPrgValue;
class stoPrfValue;
class stoArrayValue;
class stoStub;
class stoMappedValue;

class stoType;
class stoBasic;
class stoIntType;
class stoDoubleType;
class stoStringType;
class stoTypeHandleType;
class stoPtrType;
class stoPrgType;
class stoPrfType;
class stoArrayType;
class stoFixedArrayType;
class stoVariableArrayType;
class stoMappedType;
class stoClass;
class stoByteArrayType;

class stoProcessValue {
public:
    stoProcessValue() = default;
    virtual int process_stoValue(stoValue const*) { return 0; }
    virtual int process_stoIntValue(stoIntValue const* v);
    virtual int process_stoDoubleValue(stoDoubleValue const* v);
    virtual int process_stoStringValue(stoStringValue const* v);
    virtual int process_stoByteArrayValue(stoByteArrayValue const* v);
    virtual int process_stoTypeHandleValue(stoTypeHandleValue const* v);
    virtual int process_stoObject(stoObject const* v);
    virtual int process_stoPtrValue(stoPtrValue const* v);
    virtual int process_stoPrgValue(stoPrgValue const* v);
    virtual int process_stoPrfValue(stoPrfValue const* v);
    virtual int process_stoArrayValue(stoArrayValue const* v);
    virtual int process_stoStub(stoStub const* v);
    virtual int process_stoMappedValue(stoMappedValue const* v);
    // Not virtual: visitors are not deleted through this base.
    ~stoProcessValue() = default;
};

class stoProcessType {
public:
    stoProcessType() = default;
    virtual int process_stoType(stoType const*) { return 0; }
    virtual int process_stoBasic(stoBasic const* t);
    virtual int process_stoIntType(stoIntType const* t);
    virtual int process_stoDoubleType(stoDoubleType const* t);
    virtual int process_stoStringType(stoStringType const* t);
    virtual int process_stoTypeHandleType(stoTypeHandleType const* t);
    virtual int process_stoPtrType(stoPtrType const* t);
    virtual int process_stoPrgType(stoPrgType const* t);
    virtual int process_stoPrfType(stoPrfType const* t);
    virtual int process_stoArrayType(stoArrayType const* t);
    virtual int process_stoFixedArrayType(stoFixedArrayType const* t);
    virtual int process_stoVariableArrayType(stoVariableArrayType const* t);
    virtual int process_stoMappedType(stoMappedType const* t);
    virtual int process_stoClass(stoClass const* t);
    virtual int process_stoByteArrayType(stoByteArrayType const* t);
    virtual ~stoProcessType() = default;
};
