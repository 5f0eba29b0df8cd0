#include "tools/host/driver_resolution.h"

#include <stdexcept>

namespace panelhost {

namespace {

bool resolves_without_throwing(offline_CTagTable_578& table, const dictionary& dict,
                               uint32_t count) {
  const uint32_t all = table.tag_count;
  table.tag_count = count;
  bool ok = true;
  try {
    table.setup_memory_index_in_place(dict.tables, dict.struct_members);
  } catch (const std::exception&) {
    ok = false;
  }
  table.tag_count = all;
  return ok;
}

}  // namespace

std::optional<uint32_t> resolve_as_driver(offline_CTagTable_578& table, const dictionary& dict) {
  if (resolves_without_throwing(table, dict, table.tag_count)) return std::nullopt;
  // The first tags up to the culprit resolve; from it on every prefix throws. Only the
  // prefixes run here, so the tags after the culprit stay as the driver leaves them.
  uint32_t good = 0, bad = table.tag_count;  // prefix lengths
  while (bad - good > 1) {
    const uint32_t mid = good + (bad - good) / 2;
    (resolves_without_throwing(table, dict, mid) ? good : bad) = mid;
  }
  resolves_without_throwing(table, dict, table.tag_count);
  return bad - 1;
}

void explain_stop(tag_check& check, uint32_t i, std::optional<uint32_t> stop,
                  const std::string& stop_name) {
  if (!stop || i < *stop) return;
  if (i == *stop) {
    check.fault = tag_fault::malformed;
    if (check.message.empty()) check.message = "the driver cannot read this name";
    check.message +=
        "; the driver stops resolving the tag file here: the tags after it stay "
        "unresolved";
  } else if (check.fault == tag_fault::unresolved) {
    check.message = "the driver stopped resolving the tag file at tag " + std::to_string(*stop) +
                    " ('" + stop_name + "'), which it cannot read";
  }
}

}  // namespace panelhost
