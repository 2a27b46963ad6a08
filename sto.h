// sto: persistent, versioned storage of C++ object graphs.
//
// The umbrella header: it brings in the whole public interface.
//
//   #include <sto.h>
//   stoSchema* store = sto_schema_sto_schema();    // "store", version 1
//   stoClass const* c = sto_class_stoSchema();
#pragma once

#include "platform/co_containers.h"
#include "platform/co_hash.h"
#include "platform/co_pointers.h"
#include "platform/ut_ref.h"
#include "platform/ut_string.h"
#include "platform/ut_tags.h"
#include "platform/ut_typeid.h"
#include "platform/om_stream.h"
#include "platform/ve_string.h"

#include "support/encoders.h"
#include "support/exceptions.h"
#include "support/memory_pool.h"

#include "io/lexer.h"
#include "io/reader.h"
#include "io/writer.h"

#include "evolution/type_synthesiser.h"

#include "types/array.h"
#include "types/basic.h"
#include "types/binding.h"
#include "types/builder.h"
#include "types/class.h"
#include "types/describe.h"
#include "types/persistent.h"
#include "types/schema_id.h"
#include "types/system.h"
#include "types/type.h"
#include "types/type_handle.h"

#include "values/analyser.h"
#include "values/mapper.h"
#include "values/pointer_types.h"
#include "values/raw_ptr.h"
#include "values/stubbable.h"
#include "values/synthesiser.h"
#include "values/value.h"
#include "values/visitors.h"
