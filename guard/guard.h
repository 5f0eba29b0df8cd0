// Guarded mode: the driver refuses every request position whose value it cannot vouch for
// (status 2, code 10) instead of delivering another variable's value or an old one, and no
// exception leaves an entry point. UNITYDRV_GUARD=1 is read once when the library loads.
// Off, a guarded site costs one test of the flag:
//   if (guard::on) ...
#pragma once

#include <cstdint>

namespace guard {

// Constant-initialised, so that a site reached during another object's static
// initialisation reads false.
extern bool on;

// Why a request position is refused; 0 serves it.
enum reason : uint8_t {
  served = 0,
  unknown_variable,
  unknown_member,
  malformed_name,
  names_a_structure,
  needs_subscript,
  member_of_value,
  no_such_tag,
  subscript_outside,
  outside_variable,
  past_the_array,
  other_element,
  subscript_on_value,
  size_unknown,
  slot_overrun,
  too_many_requests,
  too_many_value_bytes,
  not_ready,
  exception_raised,
  reason_count
};

// One short text per reason, for the trace and the tools ("unknown variable").
const char* reason_text(uint8_t why);

// Sets the mode from UNITYDRV_GUARD ("1": on, anything else or unset: off); returns it.
// The shared library calls it once when it is loaded; tests may set guard::on directly.
bool from_environment();

}  // namespace guard
