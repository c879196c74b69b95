#include "agent/replay/CaptureName.h"

#include <filesystem>
#include <system_error>

namespace Agent {

namespace {

bool exists(std::string const& fileName) {
  std::error_code error;
  return fileName == "-" || std::filesystem::exists(fileName, error);
}

std::string opened(std::string const& fileName) {
  return fileName == "-" ? "/dev/stdin" : fileName;
}

}  // namespace

CaptureName captureName(std::string const& given) {
  std::size_t const colon = given.rfind(':');
  if (exists(given) || colon == std::string::npos || colon + 1 == given.size() ||
      !exists(given.substr(0, colon)))
    return {opened(given), ""};
  return {opened(given.substr(0, colon)), given.substr(colon + 1)};
}

}  // namespace Agent
