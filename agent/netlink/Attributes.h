#pragma once

#include <cstddef>
#include <cstring>
#include <libmnl/libmnl.h>
#include <string_view>

/// Reading the attributes of netlink(7) messages. What does not fit into the bytes that are there
/// is passed over.
namespace Agent {

template <class Handle>
void eachAttribute(void const* first, std::size_t size, Handle handle) {
  auto left = static_cast<int>(size);
  for (auto const* attribute = static_cast<nlattr const*>(first); mnl_attr_ok(attribute, left);
       attribute = mnl_attr_next(attribute)) {
    handle(*attribute);
    left -= static_cast<int>(MNL_ALIGN(attribute->nla_len));
  }
}

template <class Handle>
void eachNested(nlattr const& parent, Handle handle) {
  eachAttribute(mnl_attr_get_payload(&parent), mnl_attr_get_payload_len(&parent), handle);
}

/// The attributes of a message behind its fixed part.
template <class Handle>
void eachAttributeBehind(nlmsghdr const& message, std::size_t fixed, Handle handle) {
  if (mnl_nlmsg_get_payload_len(&message) < MNL_ALIGN(fixed)) return;
  eachAttribute(mnl_nlmsg_get_payload_offset(&message, fixed),
                mnl_nlmsg_get_payload_len(&message) - MNL_ALIGN(fixed), handle);
}

/// The default value if the attribute has another size.
template <class Value>
Value valueOf(nlattr const& attribute) {
  Value value{};
  if (mnl_attr_get_payload_len(&attribute) == sizeof value)
    std::memcpy(&value, mnl_attr_get_payload(&attribute), sizeof value);
  return value;
}

inline std::string_view textOf(nlattr const& attribute) {
  auto const* const text = static_cast<char const*>(mnl_attr_get_payload(&attribute));
  return {text, strnlen(text, mnl_attr_get_payload_len(&attribute))};
}

}  // namespace Agent
