// Checks a tag name against the controller's dictionary before anything is sent, the way
// the driver will address it: the variable and every member must exist, and the bytes the
// driver places the tag at must lie inside the variable. The driver counts the subscript
// of an array of structures from 0 whatever the declared low bound, and leaves the
// element of an elementary array to the host's index; a tag that gets either wrong reads
// or overwrites a neighbouring variable.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tag_index/tag_table.h"
#include "tools/host/dictionary.h"

namespace panelhost {

enum class tag_fault {
  none,
  unknown_variable,
  unknown_member,
  subscript_out_of_bounds,
  subscript_on_elementary,  // a subscript on a value that is not an array
  member_of_elementary,     // a member of a value that is not a structure
  malformed,                // a subscript or name part that cannot be read
  needs_member,             // the name ends on a structure: name a member
  needs_subscript,          // an array of structures without a subscript
  outside_variable,         // the driver's bytes lie outside the variable
  unresolved,               // the name checks out but the driver did not resolve it
  guarded,                  // guarded mode (tags check --guard) refuses it
};

// Short stable text of a fault kind ("unknown variable", ...), as --json reports it.
const char* fault_name(tag_fault fault);

struct tag_check {
  tag_fault fault = tag_fault::none;
  std::string message;          // one line, when fault != none
  uint16_t type_id = 0;         // the addressed item's type (the array's when an element)
  bool element = false;         // the name ends in a subscript: one element of type_id
  uint32_t element_number = 0;  // that element, counted from the array's first
  // Resolved, but worth knowing: how the driver counts a structure-array subscript that
  // has a low bound other than 0 (counting_note), and that the host picks an element.
  std::vector<std::string> notes;
  bool counting_note = false;
  bool ok() const { return fault == tag_fault::none; }
};

// Why a name cannot be read at all (an empty part, a subscript that is not a list of
// integers), or "" when it can. The driver gives up on the rest of a tag table at such a
// name.
std::string name_syntax_error(const std::string& name);

// Why the driver left a tag unresolved that the dictionary has. driver_name is the name
// the driver holds; with 16-bit names it reads each name as 8-bit text up to the first
// zero byte, so "Motor" becomes "M", and says so.
std::string unresolved_reason(const char* driver_name, bool wide_names);

class tag_checker {
 public:
  explicit tag_checker(const dictionary& dict) : dict_(dict) {}
  tag_check check(const std::string& name) const;
  // check() and then what the driver made of the name: entry is its resolved table entry.
  // A tag it left unresolved, or placed outside the variable, fails.
  tag_check check(const std::string& name, const tag_entry& entry, bool wide_names) const;

 private:
  struct walk;  // what check() learns of the structure-array subscripts on its way
  // Steps of check(); each returns a fault, or an ok result after updating result.
  tag_check variable_step(const std::string& ident, tag_check& result) const;
  tag_check member_step(const std::string& ident, const std::string& path, tag_check& result) const;
  tag_check subscript_step(const std::vector<int32_t>& subscripts, const std::string& text,
                           const std::string& path, tag_check& result) const;
  tag_check structure_subscript_step(const std::vector<int32_t>& subscripts,
                                     const std::string& path, std::size_t part, walk& w,
                                     tag_check& result) const;
  tag_check counting_verdict(const std::string& name, const walk& w, tag_check result) const;
  tag_check placement_check(const std::string& name, const tag_entry& entry,
                            tag_check result) const;
  tag_check end_check(const std::string& path, const tag_check& result) const;
  bool is_array(uint16_t type) const;
  bool is_structure(uint16_t type) const;
  bool is_structure_array(uint16_t type) const;
  std::vector<std::string> variable_names() const;
  const dictionary& dict_;
  mutable std::vector<std::string> names_;  // for suggestions, built on first need
};

}  // namespace panelhost
