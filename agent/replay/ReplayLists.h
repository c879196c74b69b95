#pragma once

#include <string>
#include <vector>

#include "agent/Switch.h"
#include "agent/output/JsonValues.h"
#include "agent/text/Dates.h"

/// What `igmpsnoopctl show` tells of a running agent, of a switch in this process.
namespace Agent {

/// What `show LIST -j` prints.
Json listOf(Switch const& snoopingSwitch, std::string const& list, Dates const& dates = {});

/// The tables of lists, with headings if there are several.
std::string listsText(Switch const& snoopingSwitch, std::vector<std::string> const& lists,
                      Dates const& dates);

/// One JSON document with all of the lists, which ends in a newline. Statistics, which are several
/// lists themselves, are an object of their own where they are not alone.
std::string listsJson(Switch const& snoopingSwitch, std::vector<std::string> const& lists,
                      Dates const& dates);

/// The names in a text of the form "groups,mrouters", each once. Throws std::invalid_argument.
std::vector<std::string> listNamesIn(std::string const& text);

}  // namespace Agent
