// Describes a handful of application classes in a schema of their own and
// prints, for each, what the store knows of it: name, schema, size, bases
// with offsets and the flattened member table with offsets and types.
//
// The classes use every way of describing members: basic values, embedded
// objects, plain, owning and counted pointers, type handles, fixed arrays,
// arrays sized by a member and arrays counted by a function, two bases at
// non-zero offsets and an abstract base.
#include <sto.h>

#include <iostream>
#include <string>

// ------------------------------------------------------------ the classes

stoSchema* sto_schema_shapes()
{
    static stoSchema* s_schema = nullptr;
    if (!s_schema)
        s_schema = sto_system()->save(new stoSchema("shapes", 3));
    return s_schema;
}

class shpPoint {
    STO_PERSISTENT(shpPoint)
public:
    virtual ~shpPoint() = default;
    double m_x = 0;
    double m_y = 0;
};
STO_DECLARE_CLASS(shpPoint)

class shpStyle {
    STO_PERSISTENT(shpStyle)
public:
    virtual ~shpStyle() = default;
    utString m_name;
    int m_colour = 0;
    utBool m_dashed = 0;
};
STO_DECLARE_CLASS(shpStyle)

// An abstract base: every shape has a name and a shared style.
class shpShape {
    STO_PERSISTENT(shpShape)
public:
    virtual ~shpShape() = default;
    virtual double area() const = 0;
    utString m_name;
    coPrf<shpStyle> m_style;
    shpShape* m_next = nullptr;  // the next shape of a drawing, not owned
};
STO_DECLARE_CLASS(shpShape)

// A second, unrelated base, so that shapes that carry labels have it at a
// non-zero offset.
class shpLabelled {
    STO_PERSISTENT(shpLabelled)
public:
    virtual ~shpLabelled() = default;
    utString m_label;
    stoByteArray m_icon;
};
STO_DECLARE_CLASS(shpLabelled)

class shpPolygon : public shpShape, public shpLabelled {
    STO_PERSISTENT(shpPolygon)
public:
    ~shpPolygon() override { delete[] m_corners; }
    double area() const override { return 0; }
    int m_n_corners = 0;
    shpPoint* m_corners = nullptr;  // m_n_corners points
    double m_bounds[4] = {};
    stoTypeHandle m_kind;
};
STO_DECLARE_CLASS(shpPolygon)

class shpDrawing {
    STO_PERSISTENT(shpDrawing)
public:
    virtual ~shpDrawing() { delete m_first; }
    static int layer_count(void const* drawing) { return static_cast<shpDrawing const*>(drawing)->m_layers ? 2 : 0; }
    shpShape* m_first = nullptr;  // owns the chain's first shape
    shpPoint m_origin;
    int* m_layers = nullptr;      // counted by layer_count
    coPrg<shpStyle> m_default_style;
};
STO_DECLARE_CLASS(shpDrawing)

// ------------------------------------------------------ their descriptions

STO_CLASS(shpPoint, sto_schema_shapes())
{
    STO_MEMBER(m_x);
    STO_MEMBER(m_y);
}

STO_CLASS(shpStyle, sto_schema_shapes())
{
    STO_MEMBER(m_name);
    STO_MEMBER(m_colour);
    STO_MEMBER(m_dashed);
}

STO_ABSTRACT_CLASS(shpShape, sto_schema_shapes())
{
    STO_MEMBER(m_name);
    STO_MEMBER(m_style);
    STO_MEMBER(m_next);
}

STO_CLASS(shpLabelled, sto_schema_shapes())
{
    STO_MEMBER(m_label);
    STO_MEMBER(m_icon);
}

STO_CLASS(shpPolygon, sto_schema_shapes())
{
    STO_BASE(shpShape);
    STO_BASE(shpLabelled);
    STO_SIZED_ARRAY(m_corners, m_n_corners);
    STO_MEMBER(m_bounds);
    STO_MEMBER(m_kind);
}

STO_CLASS(shpDrawing, sto_schema_shapes())
{
    STO_OWNING_PTR(m_first);
    STO_MEMBER(m_origin);
    STO_METHOD_ARRAY(m_layers, layer_count);
    STO_MEMBER(m_default_style);
}

// -------------------------------------------------------------- printing

namespace {

std::string describe(stoTypeHandle const& t);

template <class T>
T const* as(stoType const* type)
{
    stoObjectPtr o = type->sto_object();
    return T::sto_dynamic_cast(o.type(), o.ptr());
}

std::string describe(stoTypeHandle const& t)
{
    if (t.is_null())
        return "(none)";
    std::string kind = t->sto_dynamic_class()->name().str();
    if (stoClass const* c = as<stoClass>(t.type()))
        return c->name().str();
    if (stoBasic const* b = as<stoBasic>(t.type()))
        return b->name().str();
    if (kind == "stoByteArrayType")
        return "stoByteArray";
    if (kind == "stoTypeHandleType")
        return "type handle";
    if (stoPtrType const* p = as<stoPtrType>(t.type())) {
        char const* how = kind == "stoPrgType" ? "owning pointer to " : kind == "stoPrfType" ? "counted pointer to "
                                                                                            : "pointer to ";
        return how + describe(p->pointee_type());
    }
    if (stoFixedArrayType const* f = as<stoFixedArrayType>(t.type()))
        return describe(f->element_type()) + "[" + std::to_string(f->number_of_elements()) + "]";
    if (stoVariableArrayType const* v = as<stoVariableArrayType>(t.type())) {
        std::string count = "?";
        stoObjectPtr so = v->array_size()->sto_object();
        if (stoOffsetArraySize const* s = stoOffsetArraySize::sto_dynamic_cast(so.type(), so.ptr()))
            count = s->size_member()->name().str();
        else if (stoMethodArraySize const* m = stoMethodArraySize::sto_dynamic_cast(so.type(), so.ptr()))
            count = m->method_name().str() + "()";
        return describe(v->element_type()) + "[" + count + "]";
    }
    return kind;
}

void print_class(stoClass const* c)
{
    std::cout << c->name() << " (schema \"" << c->schema()->name() << "\" version " << c->schema()->version()
              << ", " << c->size() << " bytes" << (c->is_abstract() ? ", abstract" : "") << ")\n";
    stoClassBaseIT bases(c);
    while (++bases)
        std::cout << "  base   " << bases()->base_class()->name() << " at offset " << bases()->offset() << "\n";
    stoInheritedMemberIT members(c);
    while (++members) {
        stoMember const* m = members();
        std::cout << "  member " << m->declaring_class()->name() << "::" << m->name() << " at offset "
                  << members.offset() << ": " << describe(m->type()) << "\n";
    }
}

}  // namespace

int main()
{
    stoClass const* classes[] = {sto_class_shpPoint(),    sto_class_shpStyle(),   sto_class_shpShape(),
                                 sto_class_shpLabelled(), sto_class_shpPolygon(), sto_class_shpDrawing()};
    for (stoClass const* c : classes) {
        print_class(c);
        std::cout << "\n";
    }

    // The store describes itself the same way.
    print_class(sto_class_stoClass());
    return 0;
}
