#pragma once

#include <string>

namespace Agent {

/// What a command line calls a capture: FILE, FILE:INTERFACE of one that holds several interfaces,
/// or - for standard input.
struct CaptureName {
  std::string fileName;   ///< what to open
  std::string interface;  ///< empty: there is only one
};

/// A colon is part of the file's name where there is a file of that name.
CaptureName captureName(std::string const& given);

}  // namespace Agent
