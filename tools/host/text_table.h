// Prints rows as aligned columns under a header line.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace panelhost {

class text_table {
 public:
  explicit text_table(std::vector<std::string> header);
  void add(std::vector<std::string> row);
  void print(std::ostream& out) const;
  std::size_t line_count() const { return rows_.size() + 2; }

 private:
  std::vector<std::string> header_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace panelhost
