#include "agent/control/HttpRequest.h"

#include <algorithm>
#include <cstddef>

namespace Agent {

namespace {

/// What comes before the separator, which is taken off the text with it; all if there is none.
std::string_view takeUntil(std::string_view& text, std::string_view separator) {
  std::size_t const end = std::min(text.find(separator), text.size());
  std::string_view const taken = text.substr(0, end);
  text.remove_prefix(std::min(end + separator.size(), text.size()));
  return taken;
}

std::string_view takeLine(std::string_view& text) {
  std::string_view line = takeUntil(text, "\n");
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

/// Proxies are asked by absolute targets, "http://host/path", and servers understand them too.
std::string_view pathOf(std::string_view target) {
  target = takeUntil(target, "?");
  if (!target.starts_with("http://")) return target;
  std::size_t const path = target.find('/', std::string_view("http://").size());
  return path == std::string_view::npos ? "/" : target.substr(path);
}

/// Letters of ASCII in either case are equal, whatever the locale.
bool isSameName(std::string_view a, std::string_view b) {
  auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace

std::optional<HttpRequest> httpRequestIn(std::string_view text) {
  std::string_view line = takeLine(text);
  HttpRequest request;
  request.method = takeUntil(line, " ");
  request.path = pathOf(takeUntil(line, " "));
  if (request.method.empty() || !request.path.starts_with('/') || !line.starts_with("HTTP/1."))
    return std::nullopt;
  while (!text.empty()) {
    std::string_view field = takeLine(text);
    if (isSameName(takeUntil(field, ":"), "accept")) {
      request.accept = field;
      break;
    }
  }
  return request;
}

}  // namespace Agent
