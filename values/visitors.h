// The double-dispatch visitor over meta types, stoProcessType. Each default
// forwards to the operation of the visited class's base, so a visitor
// overrides only what it tells apart.
#pragma once

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
