// Everything behind one host device handle.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tag_index/tag_record.h"
#include "tag_index/tag_table.h"
#include "unity/unity_process.h"

// What guarded mode (guard::on) keeps per device; untouched otherwise.
struct guarded_device {
  std::string address;        // of the first InitEx before a connect that succeeded
  bool ready = false;         // the last handshake downloaded the dictionary and indexed the tags
  uint8_t round_refusal = 0;  // a guard::reason failing every position of the round; 0 none
  // Per position of the last read: a guard::reason, 0 for served; and per item sent, its
  // position. Grown, never shrunk: a warm cycle allocates nothing.
  std::vector<uint8_t> refusals;
  std::vector<uint16_t> positions;
  std::size_t refused = 0;  // positions of the last read refused
  // The requests of the last read that served every position, checked against the tag
  // index of build `checked_generation`, and their value bytes: a cycle that repeats them
  // needs no checks. generation counts the index builds.
  std::vector<tag_ref> refs;
  uint32_t generation = 0;
  uint32_t checked_generation = 0;
  std::size_t value_bytes = 0;
  bool all_served = false;
};

struct device_context {
  offline_CTagTable_578 tag_table;
  std::map<offline_stTag_578, unsigned long long> tag_values;
  unity_process session;
  std::string plc_address;
  uint8_t offline_mode = 0;
  unsigned trace_number = 0;  // names the device in the trace: 1 for the first started
  // Stable storage for element names built for bit-array requests: value-map keys point
  // at names, so a name must outlive the request that made it.
  std::set<std::string> element_names;
  // The items of the last read, kept so that each cycle reuses them (request translation).
  std::vector<read_comm> read_items;
  // The value bytes of the last read's reply, kept for the same reason.
  std::vector<unsigned char> read_values;
  guarded_device guarded;
};
