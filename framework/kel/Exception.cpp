#include "framework/kel/Exception.h"

namespace Kel {

void refuseNull(char const* owner, char const* attribute) {
  // The text ends in a stray double quote: log filters match it as it has always been.
  throw RangeException(std::string("null _") + attribute + " parameter to mutator for " + owner +
                       "::" + attribute + " not allowed\"");
}

void refuseNullMember() {
  throw RangeException("null ValidPtr");
}

void refuseReinstantiation(char const* attribute, std::string const& newValue,
                           std::string const& currentValue) {
  throw NameInUseException(
      std::string("Reinstantiating the pointer interface where constructor parameter attribute _") +
      attribute + " has a different value of " + newValue + " than the current value of " +
      currentValue + " not allowed");
}

}  // namespace Kel
