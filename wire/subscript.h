// The numbers of an array subscript, as dictionary names ("STRING[20]", "ARRAY[0..9]") and
// tag names ("Matrix[1,2]") carry them. Below both the session and the tag index, which
// each read them. A name passed as std::string ends in one zero character.
#pragma once

#include <string>
#include <vector>

// The numbers of a subscript text ("1, 2"); throws boost::bad_lexical_cast on a bad token.
std::vector<int> parse_array_indices(const std::string& text);
// The numbers of the last subscript of a zero-terminated name, or none.
std::vector<int> pares_array_indices_from_subscript(const std::string& name);
