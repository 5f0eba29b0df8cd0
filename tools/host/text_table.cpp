#include "tools/host/text_table.h"

#include <algorithm>

namespace panelhost {

text_table::text_table(std::vector<std::string> header) : header_(std::move(header)) {}

void text_table::add(std::vector<std::string> row) {
  row.resize(header_.size());
  rows_.push_back(std::move(row));
}

void text_table::print(std::ostream& out) const {
  std::vector<std::size_t> width(header_.size());
  for (std::size_t c = 0; c < header_.size(); ++c) {
    width[c] = header_[c].size();
    for (const auto& row : rows_) width[c] = std::max(width[c], row[c].size());
  }
  auto line = [&](const std::vector<std::string>& cells) {
    std::string text;
    for (std::size_t c = 0; c < cells.size(); ++c) {
      text += cells[c];
      if (c + 1 < cells.size()) text += std::string(width[c] - cells[c].size() + 2, ' ');
    }
    out << text << '\n';
  };
  line(header_);
  std::vector<std::string> rule;
  for (std::size_t w : width) rule.emplace_back(w, '-');
  line(rule);
  for (const auto& row : rows_) line(row);
}

}  // namespace panelhost
