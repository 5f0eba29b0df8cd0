// What the chaos soak reads and writes: the tags of every device, how each delivered unit
// is compared with the controller's memory, which variables are stepped counters, and the
// two programs a download switches between.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/plcsim/plcsim.h"
#include "tools/plcsim/value_stepper.h"

namespace chaos {

// How the units of one element are read out of the bytes the controller held.
enum class unit_form : uint8_t {
  word,      // 1 unit: a 16-bit value
  dword,     // 2 units, low first: a 32-bit value (integer or REAL bits)
  ebool,     // 1 unit: 1 when the byte apart from its bit 1 is non-zero
  word_bit,  // 1 unit: 65535 when the chosen bit of a 16-bit value is set, else 0
};

// One tag of the devices' tag file.
struct tag {
  std::string name;      // as in the tag file
  std::string variable;  // the variable it belongs to (absent in a program: unresolved)
  uint8_t type = 0;      // PLC type code of the requests
  unit_form form = unit_form::word;
  std::size_t element_size = 2;  // bytes per element in memory
  std::size_t elements = 1;      // elements of the tag (an array's count)
  bool written = false;          // the host writes it; nobody steps it
  uint32_t step = 1;             // counter step when not written
  plcsim::stepped_value::form stepped_as = plcsim::stepped_value::form::integer;
};

const std::vector<tag>& tags();

// The project as first loaded, and the one a download brings: a variable removed, two
// moved, one added. A download switches from either to the other.
plcsim::project original_program(const std::string& source_dir);
plcsim::project changed_program(const plcsim::project& original);

// Where element k of a tag lies in a program; false when its variable is not there.
bool element_location(const plcsim::project& p, const tag& t, std::size_t k, uint16_t& block,
                      uint32_t& offset);

// Units a host receives per element of a tag of this form.
std::size_t units_per_element(unit_form f);
// The units one element delivers when the controller held bytes (little-endian; bit: the
// addressed bit of a word_bit tag).
std::vector<uint16_t> expected_units(unit_form f, const std::vector<uint8_t>& bytes, uint8_t bit);

// The stepped counters of a program, with steps scaled by step_scale (one per controller,
// so that one controller's values are not another's).
std::vector<plcsim::stepped_value> stepped_values(const plcsim::project& p, uint32_t step_scale);

}  // namespace chaos
