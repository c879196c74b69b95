#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/state/KeptState.h"

namespace Agent {

// Entries as bytes: first which alternative an entry is, then its fields. Numbers take seven bits a
// byte, the lowest first, addresses four bytes in network order. An interface is the number of its
// name among those that occurred before, or the next number and the name.

/// Puts entries into bytes.
class StateWriter {
 public:
  void put(KeptEntry const& entry);

  std::string const& bytes() const { return bytes_; }
  std::string take() { return std::move(bytes_); }

 private:
  struct Putting;

  std::string bytes_;
  std::map<Wirex::IntfId, std::uint64_t> interfaces_;
};

/// Takes entries out of bytes, whatever these are: it takes time and memory in proportion to them.
class StateReader {
 public:
  /// @param bytes outlive the reader.
  explicit StateReader(std::string_view bytes) : rest_(bytes) {}

  /// The next entry. Nothing at the end, and from the first inconsistency on.
  std::optional<KeptEntry> next();

  bool failed() const { return failed_; }

 private:
  struct Taking;

  std::string_view rest_;
  bool failed_ = false;
  std::vector<Wirex::IntfId> interfaces_;
};

}  // namespace Agent
