#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/proxy/ProxiedSwitch.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {

/// The words of a statement, taken one after the other. Throws a text, what was expected instead,
/// where they are not what is asked for.
class Words {
 public:
  explicit Words(std::vector<std::string> const& words) : words_(words) {}

  bool atEnd() const { return next_ == words_.size(); }
  void requireEnd() const;

  /// Takes the word if it is this one.
  bool take(std::string_view word);
  void require(std::string_view word);

  std::string const& text(char const* what);
  std::uint16_t number(char const* what);
  std::uint16_t vlan();
  IpAddr address(char const* what);
  bool yesOrNo();
  IgmpVersion version();
  Direction direction();

  /// All that are left, in ascending order; "none" alone stands for none.
  Lines list();

 private:
  std::vector<std::string> const& words_;
  std::size_t next_ = 0;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
