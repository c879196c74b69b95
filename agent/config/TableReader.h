#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <toml++/toml.h>

#include "agent/config/ErrorLog.h"
#include "agent/text/Wording.h"
#include "framework/types/IpAddr.h"
#include "platform/snooping/GroupRange.h"

namespace Agent {

/// The values an integer key may have, ends included.
struct Range {
  std::int64_t min;
  std::int64_t max;
};

/// Reads one TOML table key by key. A key that is absent, or whose value is refused, leaves the
/// caller's value as it is and gives null; refusals go to the error log. The keys asked for are the
/// known ones, so `refuseUnknownKeys()` comes last. The table and the log outlive the reader.
class TableReader {
 public:
  /// @param name what error messages call the table, "[defaults]"; empty for the file itself.
  TableReader(toml::table const& table, std::string name, ErrorLog& errors);

  /// Logs the absence of a key.
  /// @param remedy how to give it.
  void require(std::string_view key, std::string_view remedy);

  /// Whatever the key holds.
  toml::node const* find(std::string_view key);

  toml::node const* read(std::string_view key, bool& value);

  /// A text that is not empty.
  toml::node const* read(std::string_view key, std::string& value);

  /// A number, or an enumeration written as a number.
  template <typename Value>
  toml::node const* read(std::string_view key, Value& value, Range range);

  /// Whole seconds.
  toml::node const* read(std::string_view key, std::chrono::seconds& value, Range range);

  /// The address of a sender: unicast, 0.0.0.0 for none of its own, or "auto" for nothing.
  toml::node const* read(std::string_view key, std::optional<Wirex::IpAddr>& value);

  /// A prefix of group addresses, or "none".
  toml::node const* read(std::string_view key, Bridging::IgmpSnooping::GroupRange& value);

  /// One of a few words: what the stream operator of `Choice` prints.
  template <typename Choice>
  toml::node const* read(std::string_view key, Choice& value,
                         std::initializer_list<Choice> choices);

  /// A table inside this one: `[key]` or `key = { ... }`.
  toml::table const* table(std::string_view key, std::string_view example);

  /// The tables written as `[[key]]`.
  std::vector<toml::table const*> tables(std::string_view key);

  void refuseUnknownKeys();

 private:
  toml::node const* readInteger(std::string_view key, std::int64_t& value, Range range,
                                std::string_view kind);
  std::optional<std::size_t> readWord(toml::node const& node, std::string_view key,
                                      std::vector<std::string> const& words);

  toml::table const& table_;
  std::string name_;
  ErrorLog& errors_;
  std::vector<std::string> known_;
};

/// What an error message calls the type of a value: "a text".
std::string_view typeName(toml::node const& node);

template <typename Value>
toml::node const* TableReader::read(std::string_view key, Value& value, Range range) {
  std::int64_t number = 0;
  toml::node const* const node = readInteger(key, number, range, "an integer");
  if (node) value = static_cast<Value>(number);
  return node;
}

template <typename Choice>
toml::node const* TableReader::read(std::string_view key, Choice& value,
                                    std::initializer_list<Choice> choices) {
  toml::node const* const node = find(key);
  if (!node) return nullptr;
  std::vector<std::string> words;
  for (Choice const choice : choices) words.push_back(message(choice));
  auto const chosen = readWord(*node, key, words);
  if (!chosen) return nullptr;
  value = choices.begin()[*chosen];
  return node;
}

}  // namespace Agent
