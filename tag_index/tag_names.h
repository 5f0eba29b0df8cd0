// Text operations on tag names with array subscripts ("Recipe[3].Temp", "Matrix[1,2]").
// Functions taking std::string for dictionary lookups expect the text followed by one
// zero character inside the string.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The subscript numbers themselves are read by wire/subscript.h.
#include "wire/subscript.h"

// Strips a trailing subscript from a zero-terminated name.
void remove_array_index(std::string& name);
// Cuts the last bracket group of plain text (by the position of the last ']').
std::string RemoveLastArraySymbol(std::string name);
// The parts of a name between dots, empty ones kept: "a..b." gives "a", "", "b", "".
std::vector<std::string_view> split_at_dots(std::string_view name);

struct tag_plc_tools_function_578 {
  // Rewrites the last subscript of source for element index into target; 1 if rewritten.
  static unsigned int OverrideTagNameForNewArrayIndex(const char* source, char* target,
                                                      unsigned short index, unsigned char kind);
};
