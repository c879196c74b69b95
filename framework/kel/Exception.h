#pragma once

#include <stdexcept>
#include <string>

#include "framework/kel/Export.h"

namespace Kel {

/// What the framework throws when it is given a value that it cannot take. State machines never
/// catch these: they unwind to the event loop.
class KEL_EXPORT Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A value outside the range of its type or attribute.
class KEL_EXPORT RangeException : public Exception {
 public:
  using Exception::Exception;
};

/// A member that exists was asked for again with other constructor arguments.
class KEL_EXPORT NameInUseException : public Exception {
 public:
  using Exception::Exception;
};

/// A null pointer was given to the mutator of `owner::attribute`, which refuses it.
[[noreturn]] KEL_EXPORT void refuseNull(char const* owner, char const* attribute);

/// The object of a handle given to the mutator of `owner::attribute`, which refuses null.
template <class Handle>
auto& nonNull(Handle const& handle, char const* owner, char const* attribute) {
  if (!handle) refuseNull(owner, attribute);
  return *handle;
}

/// A collection holds a null member where a find-or-create expects one.
[[noreturn]] KEL_EXPORT void refuseNullMember();

/// @param attribute the constructor parameter that differs, without its leading underscore.
[[noreturn]] KEL_EXPORT void refuseReinstantiation(char const* attribute,
                                                   std::string const& newValue,
                                                   std::string const& currentValue);

}  // namespace Kel
