// Errors of mutators: the operations that make, store and delete the elements of a collection.

#pragma once

#include <stdexcept>
#include <string_view>

#include "platform/vell/Types.h"

namespace Zarn {

/// A mutator was asked for something that contradicts what is there.
class MutatorException : public std::logic_error {
 public:
  using logic_error::logic_error;
};

namespace Impl {

/// An element of that type exists, and was made with another value of the attribute `fieldId` than
/// `asked`.
[[noreturn]] void throwMutatorReinstantiating(std::string_view type, U32 fieldId, void const* asked,
                                              void const* existing);

/// A value was asked for where a key has none: the caller is at fault. Throws
/// `std::bad_optional_access`.
[[noreturn]] void throwBadOptionalAccess();

}  // namespace Impl
}  // namespace Zarn
