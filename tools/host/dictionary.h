// The controller's data dictionary, downloaded by a session of our own.
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "dictionary/dictionary_records.h"

namespace panelhost {

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

}  // namespace panelhost
