#pragma once

namespace Agent {

/// The page's style sheet, which the pictures need as well where they stand alone.
extern char const* const pageStyle;

}  // namespace Agent
