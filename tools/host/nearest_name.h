// "Did you mean ...": the closest known name to a mistyped one.
#pragma once

#include <string>
#include <vector>

namespace panelhost {

// The candidate with the smallest edit distance (ignoring case) to name, if that
// distance is small for the name's length; empty otherwise.
std::string nearest_name(const std::string& name, const std::vector<std::string>& candidates);

// " (did you mean 'X'?)" or "" when nothing is close.
std::string suggestion(const std::string& name, const std::vector<std::string>& candidates);

}  // namespace panelhost
