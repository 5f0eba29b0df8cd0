// Which tags a command works on, and the host request for each.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/host/device_access.h"
#include "tools/host/dictionary.h"
#include "tools/host/dictionary_shape.h"
#include "tools/host/tag_choice.h"
#include "tools/host/tag_file_reader.h"

namespace panelhost {

struct selection_options {
  std::string tag_file;            // --tags
  std::string list_file;           // --list
  std::vector<std::string> names;  // positional, "Name" or "Name:TYPE"
  std::vector<std::string> types;  // --type NAME=TYPE
  std::optional<uint16_t> index;   // --index
  std::optional<uint16_t> count;   // --count
  std::optional<int> bit;          // --bit
  bool memory_bit = false;         // write: a bit inside a word, into the driver's memory
};

// A tag left out of a command, and why.
struct tag_refusal {
  std::string name;
  std::string reason;   // short and stable, as --json reports it
  std::string message;  // one line
  std::string text() const { return "tag '" + name + "': " + message; }
};

struct selected_tag {
  std::string name;
  host_request request;
};

// A tag file made for the run from a list or from names; removed on destruction.
class temp_tag_file {
 public:
  explicit temp_tag_file(const std::vector<tag_choice>& tags);
  ~temp_tag_file();
  temp_tag_file(const temp_tag_file&) = delete;
  temp_tag_file& operator=(const temp_tag_file&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class tag_selection {
 public:
  // Reads the list or tag file; names not in the tag file are reported by requests().
  explicit tag_selection(const selection_options& options);
  const std::string& tag_file() const { return tag_file_; }
  // Types from --type, then from the list, then from the dictionary (when given), whose
  // names and subscripts are checked. A tag that fails is added to errors and left out;
  // the others are returned in order.
  std::vector<selected_tag> requests(const dictionary* dict,
                                     std::vector<tag_refusal>& errors) const;
  // Resolved tags worth a word (a structure-array subscript counted apart from its
  // declared bounds), filled by requests().
  const std::vector<tag_refusal>& notes() const { return notes_; }

 private:
  selection_options options_;
  std::unique_ptr<temp_tag_file> temp_;
  std::string tag_file_;
  std::vector<std::string> file_names_;
  std::vector<tag_choice> chosen_;
  std::vector<uint32_t> positions_;
  std::vector<tag_refusal> errors_;
  mutable std::vector<tag_refusal> notes_;

  std::string apply_range(const tag_shape& shape, uint32_t elements, host_request& request) const;
  std::string apply_bit(host_request& request) const;
};

}  // namespace panelhost
