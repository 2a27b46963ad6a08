#include "values/stubbable.h"

#include "types/basic.h"
#include "types/describe.h"

stoStubbable const* stoStubbable::to_stubbable(stoRawPtr const& p)
{
    if (!p.ptr() || p.type().is_null())
        return nullptr;
    stoObjectPtr t = p.type()->sto_object();
    stoClass const* cls = stoClass::sto_dynamic_cast(t.type(), t.ptr());
    if (!cls)
        return nullptr;
    // Named by schema and name like every basic type, whatever its declared
    // bases say.
    if (*cls == *sto_class_stoByteArrayType())
        return static_cast<stoStubbable const*>(stoByteArrayType::view_as(sto_class_stoStubbable(), p.ptr()));
    return stoStubbable::sto_dynamic_cast(cls, p.ptr());
}

STO_ABSTRACT_CLASS(stoStubbable, sto_schema_sto_schema()) {}
