#include "tools/host/tag_export.h"

#include <fnmatch.h>

#include <algorithm>

#include "tools/host/dictionary_shape.h"
#include "tools/host/plc_type.h"
#include "unitydrv/unitydrv.h"
#include "wire/byte_cursor.h"

namespace panelhost {

namespace {

// Nesting deeper than this is taken for a loop in a damaged dictionary.
constexpr int k_max_depth = 32;
constexpr std::size_t k_progress_every = 5000;

std::string plain(const std::string& name) {
  return !name.empty() && name.back() == '\0' ? name.substr(0, name.size() - 1) : name;
}

class exporter {
 public:
  exporter(const dictionary& dict, const export_options& options,
           const std::function<void(const std::string&)>& line)
      : dict_(dict), options_(options), line_(line) {}

  void type(const std::string& name, uint16_t type_id, int depth) {
    if (depth > k_max_depth) return;
    const auto array = dict_.data_types.find(type_id);
    const auto dims = array == dict_.data_types.end() ? std::vector<std::pair<int32_t, int32_t>>{}
                                                      : array_dimensions(array->second);
    if (!dims.empty()) return this->array(name, type_id, array->second, dims, depth);
    const auto members = dict_.struct_members.find(type_id);
    if (members != dict_.struct_members.end()) {
      for (const data_type& m : members->second) {
        if (m.bounds.size() < 2) continue;
        type(name + "." + plain(m.name), wire::le_reader(m.bounds).u16(), depth + 1);
      }
      return;
    }
    const tag_shape shape = shape_of_type(type_id, dict_.data_types);
    if (shape.code == 0) return;
    emit(name,
         plc_type_name(shape.code) +
             (shape.code == UNITYDRV_TYPE_STRING ? "[" + std::to_string(shape.count) + "]" : ""));
  }

  std::size_t lines() const { return lines_; }

 private:
  void array(const std::string& name, uint16_t type_id, const data_type& type,
             const std::vector<std::pair<int32_t, int32_t>>& dims, int depth) {
    const bool of_structures = dict_.struct_members.count(type.element_type) != 0;
    const tag_shape shape = shape_of_type(type_id, dict_.data_types);
    if (!of_structures && shape.code != 0) {
      emit(name, plc_type_name(shape.code) + "[" + std::to_string(shape.count) + "]");
    }
    if (of_structures) return structure_elements(name, type, dims, depth);
    if (!options_.elements) return;
    std::vector<int32_t> at;
    for (const auto& d : dims) at.push_back(d.first);
    for (;;) {
      std::string subscript;
      for (int32_t s : at) subscript += (subscript.empty() ? "" : ",") + std::to_string(s);
      this->type(name + "[" + subscript + "]", type.element_type, depth + 1);
      std::size_t d = dims.size();
      while (d > 0 && at[d - 1] == dims[d - 1].second) at[d - 1] = dims[d - 1].first, --d;
      if (d == 0) return;
      ++at[d - 1];
    }
  }

  // The driver counts an array of structures' subscript from 0 whatever the declared
  // bounds (and takes only the first number), so each element is named by its number from
  // 0, with a comment where that differs from the declared subscript.
  void structure_elements(const std::string& name, const data_type& type,
                          const std::vector<std::pair<int32_t, int32_t>>& dims, int depth) {
    uint32_t elements = 0;
    int32_t low = 0;
    if (!array_elements(type, elements, low)) return;
    const bool apart = dims.size() > 1 || low != 0;
    std::vector<int32_t> at;
    for (const auto& d : dims) at.push_back(d.first);
    for (uint32_t k = 0; k < elements; ++k) {
      const std::string element = name + "[" + std::to_string(k) + "]";
      const std::size_t pending = pending_.size();
      if (apart) {
        std::string declared;
        for (int32_t s : at) declared += (declared.empty() ? "" : ",") + std::to_string(s);
        pending_.push_back("# " + element + " is the element declared as " + name + "[" + declared +
                           "] (the driver counts from 0)");
      }
      this->type(element, type.element_type, depth + 1);
      pending_.resize(std::min(pending_.size(), pending));
      std::size_t d = dims.size();
      while (d > 0 && at[d - 1] == dims[d - 1].second) at[d - 1] = dims[d - 1].first, --d;
      if (d > 0) ++at[d - 1];
    }
  }

  void emit(const std::string& name, const std::string& type) {
    if (!options_.filter.empty() && fnmatch(options_.filter.c_str(), name.c_str(), 0) != 0) return;
    for (const std::string& comment : pending_) line_(comment);
    pending_.clear();
    line_(name + ":" + type);
    ++lines_;
  }

  const dictionary& dict_;
  const export_options& options_;
  const std::function<void(const std::string&)>& line_;
  std::size_t lines_ = 0;
  std::vector<std::string> pending_;  // comments written before the next tag line
};

}  // namespace

std::size_t export_tags(const dictionary& dict, const export_options& options,
                        const std::function<void(const std::string&)>& line,
                        const std::function<void(std::size_t, std::size_t)>& progress) {
  exporter out(dict, options, line);
  std::size_t done = 0;
  for (const auto& [name, var] : dict.tables) {
    out.type(plain(name), var.type_id, 0);
    if (++done % k_progress_every == 0) progress(done, dict.tables.size());
  }
  return out.lines();
}

}  // namespace panelhost
