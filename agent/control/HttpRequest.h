#pragma once

#include <optional>
#include <string_view>

namespace Agent {

/// What a request for a page says (RFC 9112). Its views are into the text that was read.
struct HttpRequest {
  std::string_view method;
  std::string_view path;    ///< without the query; of an absolute target what follows its host
  std::string_view accept;  ///< the first Accept field, empty without one
};

/// Nothing if the text does not begin with a request line of HTTP/1.
std::optional<HttpRequest> httpRequestIn(std::string_view text);

}  // namespace Agent
