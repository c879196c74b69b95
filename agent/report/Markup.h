#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

/// Text in HTML and SVG.
namespace Agent {

/// A text that comes from elsewhere, such as an interface's name, as it may stand between tags or
/// in a quoted attribute: no markup, and nothing that cannot be seen or turns what stands beside it
/// around. What is no UTF-8 becomes U+FFFD.
std::string escaped(std::string_view text);

/// The beginning of a text if it has more than so many characters, with an ellipsis.
std::string shortened(std::string const& text, std::size_t most);

/// "1,000", as people write numbers.
std::string grouped(std::uint64_t number);

/// Opens a <div> whose content is moved with the keyboard, too, where it is too wide.
/// @param name what it holds, for who does not see it.
void beginScrolled(std::ostream& out, std::string_view name);

}  // namespace Agent
