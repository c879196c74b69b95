#include "agent/control/SocketName.h"

#include "agent/text/Wording.h"

namespace Agent {

std::string socketPath(std::string const& given) {
  bool const isName = !given.empty() && given.find('/') == std::string::npos;
  return isName ? message(socketDirectory, '/', given) : given;
}

}  // namespace Agent
