// Text operations on tag names with array subscripts ("Recipe[3].Temp", "Matrix[1,2]").
// Functions taking std::string for dictionary lookups expect the text followed by one
// zero character inside the string.
#pragma once

#include <string>
#include <vector>

// The numbers of a subscript text ("1, 2"); throws boost::bad_lexical_cast on a bad token.
std::vector<int> parse_array_indices(const std::string& text);
// The numbers of the last subscript of a zero-terminated name, or none.
std::vector<int> pares_array_indices_from_subscript(const std::string& name);
// Strips a trailing subscript from a zero-terminated name.
void remove_array_index(std::string& name);
// Cuts the last bracket group of plain text (by the position of the last ']').
std::string RemoveLastArraySymbol(std::string name);

struct tag_plc_tools_function_578 {
  // Rewrites the last subscript of source for element index into target; 1 if rewritten.
  static unsigned int OverrideTagNameForNewArrayIndex(const char* source, char* target,
                                                      unsigned short index, unsigned char kind);
};
