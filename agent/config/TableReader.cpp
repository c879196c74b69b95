#include "agent/config/TableReader.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "platform/igmp/wire/Message.h"

namespace Agent {

namespace {

bool mayBeSource(Wirex::IpAddr address) {
  return address == Wirex::IpAddr() || Igmp::isUnicast(address);
}

/// "232.0.0.0/8", or "none".
std::optional<Bridging::IgmpSnooping::GroupRange> groupRange(std::string_view text) {
  if (text == "none") return Bridging::IgmpSnooping::GroupRange();
  std::size_t const slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  auto const address = Wirex::IpAddr::fromText(text.substr(0, slash));
  std::string_view const digits = text.substr(slash + 1);
  unsigned length = 0;
  auto const [end, error] = std::from_chars(digits.begin(), digits.end(), length);
  bool const isNumber = error == std::errc() && end == digits.end();
  // A shorter prefix would hold addresses that are no groups.
  if (!address || !address->isMulticast() || !isNumber || length < 4 || length > 32)
    return std::nullopt;
  return Bridging::IgmpSnooping::GroupRange(*address, length);
}

}  // namespace

std::string_view typeName(toml::node const& node) {
  switch (node.type()) {
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "a list";
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a floating-point number";
    case toml::node_type::boolean:
      return "a boolean";
    case toml::node_type::date:
    case toml::node_type::time:
    case toml::node_type::date_time:
      return "a date or time";
    case toml::node_type::none:
      break;
  }
  return "nothing";
}

TableReader::TableReader(toml::table const& table, std::string name, ErrorLog& errors)
    : table_(table), name_(std::move(name)), errors_(errors) {}

void TableReader::require(std::string_view key, std::string_view remedy) {
  if (!table_.contains(key)) {
    errors_.add(table_.source().begin, name_, " has no ", key, "; ", remedy);
  }
}

toml::node const* TableReader::find(std::string_view key) {
  known_.emplace_back(key);
  return table_.get(key);
}

toml::node const* TableReader::read(std::string_view key, bool& value) {
  toml::node const* const node = find(key);
  if (!node) return nullptr;
  auto const* const boolean = node->as_boolean();
  if (!boolean) {
    errors_.add(node->source().begin, key, " is ", typeName(*node), "; give true or false");
    return nullptr;
  }
  value = boolean->get();
  return node;
}

toml::node const* TableReader::read(std::string_view key, std::string& value) {
  toml::node const* const node = find(key);
  if (!node) return nullptr;
  auto const* const text = node->as_string();
  if (!text || text->get().empty()) {
    errors_.add(node->source().begin, key, " is ", text ? "empty" : typeName(*node),
                "; give a name in quotes");
    return nullptr;
  }
  value = text->get();
  return node;
}

toml::node const* TableReader::read(std::string_view key, std::chrono::seconds& value,
                                    Range range) {
  std::int64_t number = 0;
  toml::node const* const node = readInteger(key, number, range, "whole seconds");
  if (node) value = std::chrono::seconds(number);
  return node;
}

toml::node const* TableReader::read(std::string_view key, std::optional<Wirex::IpAddr>& value) {
  toml::node const* const node = find(key);
  if (!node) return nullptr;
  auto const* const text = node->as_string();
  if (text && text->get() == "auto") {
    value.reset();
    return node;
  }
  auto const address = text ? Wirex::IpAddr::fromText(text->get()) : std::nullopt;
  if (!address) {
    errors_.add(node->source().begin, key,
                text ? message(" ", quoted(text->get()), " is not an IPv4 address")
                     : message(" is ", typeName(*node)),
                "; give an IPv4 address in quotes, as in \"192.0.2.1\", or \"auto\"");
    return nullptr;
  }
  if (!mayBeSource(*address)) {
    errors_.add(node->source().begin, key, ' ', *address,
                " cannot be the source of a packet; give a unicast address, 0.0.0.0 or \"auto\"");
    return nullptr;
  }
  value = *address;
  return node;
}

toml::node const* TableReader::read(std::string_view key,
                                    Bridging::IgmpSnooping::GroupRange& value) {
  toml::node const* const node = find(key);
  if (!node) return nullptr;
  auto const* const text = node->as_string();
  auto const range = text ? groupRange(text->get()) : std::nullopt;
  if (!range) {
    errors_.add(node->source().begin, key,
                text ? message(" ", quoted(text->get()), " is not a range of group addresses")
                     : message(" is ", typeName(*node)),
                "; give one in quotes, as in \"232.0.0.0/8\", or \"none\"");
    return nullptr;
  }
  value = *range;
  return node;
}

toml::table const* TableReader::table(std::string_view key, std::string_view example) {
  toml::node const* const node = find(key);
  if (!node) return nullptr;
  if (!node->is_table()) {
    errors_.add(node->source().begin, key, " is ", typeName(*node), "; write ", example);
  }
  return node->as_table();
}

std::vector<toml::table const*> TableReader::tables(std::string_view key) {
  std::vector<toml::table const*> result;
  toml::node const* const node = find(key);
  if (!node) return result;
  auto const refuse = [&](toml::node const& wrong) {
    errors_.add(wrong.source().begin, key, " is ", typeName(wrong), "; write [[", key,
                "]] in double brackets");
  };
  if (!node->is_array()) {
    refuse(*node);
    return result;
  }
  for (toml::node const& element : *node->as_array()) {
    if (element.is_table()) {
      result.push_back(element.as_table());
    } else {
      refuse(element);
    }
  }
  return result;
}

void TableReader::refuseUnknownKeys() {
  for (auto const& [key, value] : table_) {
    if (std::find(known_.begin(), known_.end(), key.str()) != known_.end()) continue;
    std::string const meant = nearest(key.str(), known_);
    errors_.add(key.source().begin, "unknown key ", quoted(key.str()),
                name_.empty() ? "" : " in " + name_,
                meant.empty() ? "; the known keys are " + enumerated(known_, "and")
                              : "; did you mean " + quoted(meant) + "?");
  }
}

toml::node const* TableReader::readInteger(std::string_view key, std::int64_t& value, Range range,
                                           std::string_view kind) {
  toml::node const* const node = find(key);
  if (!node) return nullptr;
  auto const* const number = node->as_integer();
  if (number && number->get() >= range.min && number->get() <= range.max) {
    value = number->get();
    return node;
  }
  errors_.add(
      node->source().begin, key,
      number ? message(" = ", number->get(), " is out of range") : message(" is ", typeName(*node)),
      "; give ", kind, " from ", range.min, " to ", range.max);
  return nullptr;
}

std::optional<std::size_t> TableReader::readWord(toml::node const& node, std::string_view key,
                                                 std::vector<std::string> const& words) {
  auto const* const text = node.as_string();
  auto const match = text ? std::find(words.begin(), words.end(), text->get()) : words.end();
  if (match != words.end()) return static_cast<std::size_t>(match - words.begin());
  std::vector<std::string> quotedWords;
  quotedWords.reserve(words.size());
  for (std::string const& word : words) quotedWords.push_back(quoted(word));
  errors_.add(
      node.source().begin, key,
      text ? message(" = ", quoted(text->get()), " is unknown") : message(" is ", typeName(node)),
      "; give ", enumerated(quotedWords, "or"));
  return std::nullopt;
}

}  // namespace Agent
