#include "guard/guard.h"

#include <cstdlib>
#include <cstring>

namespace guard {

bool on = false;

const char* reason_text(uint8_t why) {
  static const char* const texts[reason_count] = {
      "served",
      "unknown variable",
      "unknown member",
      "malformed name",
      "structure: name a member",
      "array of structures: give a subscript",
      "member of a value that is not a structure",
      "no such tag (tag number past the tag file, or no tag file)",
      "subscript outside the array",
      "outside its variable",
      "the elements asked run past the array or value",
      "array_index selects another element than the name's subscript",
      "subscript on a value that is not an array",
      "size of the type unknown",
      "values longer than one result slot, and not the last request",
      "more than 255 requests in one call",
      "more value bytes than one reply holds (2,038)",
      "device not ready (handshake incomplete)",
      "exception inside the call",
  };
  return why < reason_count ? texts[why] : "refused";
}

bool from_environment() {
  const char* value = std::getenv("UNITYDRV_GUARD");
  on = value != nullptr && std::strcmp(value, "1") == 0;
  return on;
}

}  // namespace guard
