#include "wire/subscript.h"

#include <boost/lexical_cast.hpp>
#include <boost/tokenizer.hpp>

std::vector<int> parse_array_indices(const std::string& text) {
  using separator = boost::char_separator<char>;
  boost::tokenizer<separator> tokens(text, separator(", "));
  std::vector<int> indices;
  for (const std::string& token : tokens) {
    indices.push_back(boost::lexical_cast<int>(token));
  }
  return indices;
}

std::vector<int> pares_array_indices_from_subscript(const std::string& name) {
  // name ends in its terminating zero, so the closing bracket sits at size - 2.
  if (name.at(name.size() - 2) != ']') {
    return {};
  }
  // Without '[' npos + 1 wraps to 0: the whole text before ']' is taken as numbers.
  const std::size_t open = name.rfind('[');
  return parse_array_indices(name.substr(open + 1, name.size() - 3 - open));
}
