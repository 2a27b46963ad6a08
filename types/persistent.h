// Declaring a persistent class.
//
// A class becomes persistent with one line inside it and one after it in its
// header:
//
//   class annNote : public annNamedItem {
//       STO_PERSISTENT(annNote)
//   public:
//       ...
//   };
//   STO_DECLARE_CLASS(annNote)     // sto_class_annNote(), sto_type_annNote()
//
// and a description in a source file (see types/describe.h). The in-class
// macro declares the store's hooks: the static creation, deletion, cast and
// true-class functions, the build hooks and the virtual `sto_object()`. It
// leaves the access at `public:`.
#pragma once

#include "types/type_handle.h"

class stoBuilder;

// Build functions may run on a raw, never-constructed prototype (abstract
// classes); they only compute addresses of members and bases, which the
// dynamic-type checker would otherwise reject.
#if defined(__clang__) || defined(__GNUC__)
#define STO_NO_SANITIZE_VPTR __attribute__((no_sanitize("vptr")))
#else
#define STO_NO_SANITIZE_VPTR
#endif

#define STO_PERSISTENT(X)                                                                  \
public:                                                                                    \
    using sto_self = X;                                                                    \
    static stoClass const* sto_class();                                                    \
    static void sto_build_class(stoBuilder& builder, void const* prototype);              \
    static void* sto_make_new();                                                           \
    static void* sto_make_new_array(int n);                                                \
    static void sto_delete(void* p);                                                       \
    static void sto_delete_array(void* p, int n);                                          \
    static X* sto_dynamic_cast(stoClass const* cls, void* p);                              \
    static X const* sto_dynamic_cast(stoClass const* cls, void const* p);                  \
    static stoObjectPtr sto_true_class(void const* p);                                     \
    static void sto_force_load() {}                                                        \
    virtual stoObjectPtr sto_object() const;                                               \
    stoClass const* sto_dynamic_class() const { return sto_object().type(); }              \
    stoTypeHandle sto_type() const;                                                        \
                                                                                           \
protected:                                                                                 \
    void sto_build_bases(stoBuilder& builder) const;                                       \
    void sto_build_members(stoBuilder& builder) const;                                     \
    void sto_describe(stoBuilder& sto_builder, int sto_phase) const;                       \
                                                                                           \
public:

// The registration function and the type handle of a persistent class.
#define STO_DECLARE_CLASS(X)          \
    stoClass const* sto_class_##X();  \
    stoTypeHandle sto_type_##X();
