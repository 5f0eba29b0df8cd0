// Types for offline work from a simulator project: the project is served by an in-process
// simulator on a loopback port and its dictionary downloaded the way a controller's is,
// so the same decoding applies online and offline.
#pragma once

#include <ostream>
#include <string>

#include "tools/host/dictionary.h"

namespace panelhost {

// Throws std::runtime_error naming the project's problem.
dictionary project_dictionary(const std::string& project_path, std::ostream& progress);

}  // namespace panelhost
