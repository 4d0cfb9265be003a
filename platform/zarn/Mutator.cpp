#include "platform/zarn/Mutator.h"

#include <optional>

#include "platform/vell/Assert.h"

namespace Zarn::Impl {

void throwMutatorReinstantiating(std::string_view type, U32 fieldId, void const* asked,
                                 void const* existing) {
  throw MutatorException(Vell::concatenate("the ", type, " exists with another attribute 0x",
                                           std::hex, fieldId, ": ", existing, ", and ", asked,
                                           " was asked for; delete it first, or ask for the same"));
}

void throwBadOptionalAccess() { throw std::bad_optional_access(); }

}  // namespace Zarn::Impl
