#include "tools/host/nearest_name.h"

#include <algorithm>
#include <cctype>

namespace panelhost {

namespace {

std::size_t edit_distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                        std::tolower(static_cast<unsigned char>(b[j - 1]));
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

}  // namespace

std::string nearest_name(const std::string& name, const std::vector<std::string>& candidates) {
  const std::size_t limit = std::max<std::size_t>(2, name.size() / 3);
  std::string best;
  std::size_t best_distance = limit + 1;
  for (const std::string& c : candidates) {
    // Lengths that differ by more than the limit cannot be close enough.
    const std::size_t gap =
        c.size() > name.size() ? c.size() - name.size() : name.size() - c.size();
    if (gap >= best_distance) continue;
    const std::size_t d = edit_distance(name, c);
    if (d < best_distance) {
      best_distance = d;
      best = c;
    }
  }
  return best;
}

std::string suggestion(const std::string& name, const std::vector<std::string>& candidates) {
  const std::string best = nearest_name(name, candidates);
  return best.empty() ? "" : " (did you mean '" + best + "'?)";
}

}  // namespace panelhost
