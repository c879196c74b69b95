#include "agent/control/Request.h"

#include <nlohmann/json.hpp>

#include "agent/output/JsonValues.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

std::string textIn(Json const& object, char const* key) {
  auto const found = object.find(key);
  if (found == object.end()) return {};
  if (!found->is_string()) refuse(Agent::quoted(key), " is no text");
  return found->get<std::string>();
}

Selection selectionIn(Json const& object) {
  Selection selection;
  if (auto const vlan = object.find("vlan"); vlan != object.end()) {
    using Bridging::VlanId;
    if (!vlan->is_number_unsigned() || vlan->get<std::uint64_t>() < VlanId::min ||
        vlan->get<std::uint64_t>() > VlanId::max)
      refuse("\"vlan\" is no number from ", VlanId::min, " to ", VlanId::max);
    selection.vlan = VlanId(vlan->get<std::uint16_t>());
  }
  if (auto const interface = textIn(object, "interface"); !interface.empty())
    selection.interface = Wirex::IntfId(Kel::String8(interface));
  if (auto const group = textIn(object, "group"); !group.empty()) {
    selection.group = Wirex::IpAddr::fromText(group);
    if (!selection.group) refuse(Agent::quoted(group), " is no IPv4 address");
  }
  return selection;
}

}  // namespace

std::string requestLine(Request const& request) {
  Json object;
  object["command"] = request.command;
  if (!request.what.empty()) object["what"] = request.what;
  if (request.of.vlan) object["vlan"] = request.of.vlan->value();
  if (request.of.interface) object["interface"] = message(*request.of.interface);
  if (request.of.group) object["group"] = message(*request.of.group);
  if (request.text) object["text"] = true;
  if (!request.handle.empty()) object["handle"] = request.handle;
  if (!request.levels.empty()) object["levels"] = request.levels;
  return oneLine(object) + '\n';
}

Request requestIn(std::string_view line) {
  Json const object = Json::parse(line, nullptr, /* allow_exceptions */ false);
  if (!object.is_object()) refuse("a request is one line with a JSON object");
  Request request;
  request.command = textIn(object, "command");
  request.what = textIn(object, "what");
  request.of = selectionIn(object);
  if (auto const text = object.find("text"); text != object.end())
    request.text = text->is_boolean() && text->get<bool>();
  request.handle = textIn(object, "handle");
  request.levels = textIn(object, "levels");
  return request;
}

}  // namespace Agent
