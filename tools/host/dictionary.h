// The controller's dictionary as panelhost sees it: downloaded from a controller or served
// from a project file, compared across a program change, and searched for the name nearest
// a misspelt one.
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "dictionary/dictionary_records.h"
#include "wire/byte_cursor.h"

namespace panelhost {

// The controller's data dictionary, downloaded by a session of our own.
struct dictionary {
  std::string plc_type;
  std::map<unsigned short, data_type> data_types;
  std::map<unsigned short, std::vector<data_type>> struct_members;
  std::map<std::string, table> tables;  // names end in their zero character
};

// Connects to address:port (a controller listens on 502), identifies it and downloads its
// dictionary, reporting each stage on progress. Throws std::runtime_error with a one-line
// reason.
dictionary download_dictionary(const std::string& address, std::ostream& progress,
                               uint16_t port = 502);

// Types for offline work from a simulator project: the project is served by an in-process
// simulator on a loopback port and its dictionary downloaded the way a controller's is,
// so the same decoding applies online and offline.
// Throws std::runtime_error naming the project's problem.
dictionary project_dictionary(const std::string& project_path, std::ostream& progress);

// What changed between two downloads of a controller's dictionary (a new program).
// "" when the variables and structures are the same; else the changes joined by "; ":
// "Temps removed; Level moved 2:0x0200 -> 2:0x0300; Flow added; Count retyped INT -> DINT;
// structure PUMP changed".
std::string program_changes(const dictionary& before, const dictionary& after);

// "2:0x0200": block and byte offset of a dictionary location.
std::string location_text(const wire::bytes& location);

// "Did you mean ...": the closest known name to a mistyped one.
// The candidate with the smallest edit distance (ignoring case) to name, if that
// distance is small for the name's length; empty otherwise.
std::string nearest_name(const std::string& name, const std::vector<std::string>& candidates);

// " (did you mean 'X'?)" or "" when nothing is close.
std::string suggestion(const std::string& name, const std::vector<std::string>& candidates);

}  // namespace panelhost
