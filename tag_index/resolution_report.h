// The trace's account of a tag index build: which tags did not resolve and why, and which
// resolved to an address outside their variable. It walks the names again beside the
// index build and changes nothing.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "dictionary/dictionary_records.h"
#include "tag_index/tag_table.h"

namespace resolution_report {

// One line per tag worth a look (unless again: the index is built anew from the same
// dictionary), then the counts. failed: the build stopped on an exception (the trace says
// what in the names or the dictionary stops it). Never raises.
void trace_index(const offline_CTagTable_578& tags, const std::map<std::string, table>& tables,
                 const std::map<unsigned short, std::vector<data_type>>& struct_members,
                 const std::map<unsigned short, data_type>& data_types, bool failed, bool again);

}  // namespace resolution_report
