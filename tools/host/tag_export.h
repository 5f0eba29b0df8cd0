// Every tag a panel can address in a dictionary, as lines of a tag list ("Name:TYPE").
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "tools/host/dictionary.h"

namespace panelhost {

struct export_options {
  bool elements = false;  // also each element of an elementary array
  std::string filter;     // glob on the whole tag name; empty: every tag
};

// Calls line("Name:TYPE") for each tag: variables, structure members at any depth, arrays
// of structures element by element (numbered from 0, as the driver counts them, with a
// "# ..." comment line naming the declared element where that differs), arrays of
// elementary values whole (and per element
// with options.elements). progress(done, total) is called every few thousand variables.
// Returns the number of lines.
std::size_t export_tags(const dictionary& dict, const export_options& options,
                        const std::function<void(const std::string&)>& line,
                        const std::function<void(std::size_t, std::size_t)>& progress);

}  // namespace panelhost
