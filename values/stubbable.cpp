#include "values/stubbable.h"

#include "types/describe.h"

stoStubbable const* stoStubbable::to_stubbable(stoRawPtr const& p)
{
    if (!p.ptr() || p.type().is_null())
        return nullptr;
    stoObjectPtr t = p.type()->sto_object();
    stoClass const* cls = stoClass::sto_dynamic_cast(t.type(), t.ptr());
    if (!cls)
        return nullptr;
    return stoStubbable::sto_dynamic_cast(cls, p.ptr());
}

STO_ABSTRACT_CLASS(stoStubbable, sto_schema_sto_schema()) {}
