#include "tools/host/offline_project.h"

#include <stdexcept>

#include "tools/plcsim/plcsim.h"

namespace panelhost {

dictionary project_dictionary(const std::string& project_path, std::ostream& progress) {
  plcsim::server sim(plcsim::load_project_file(project_path));
  if (!sim.start("127.0.0.1", 0)) {
    throw std::runtime_error("cannot serve project " + project_path + " on a loopback port");
  }
  progress << "types from project " << project_path << '\n';
  return download_dictionary(sim.address(), progress, sim.port());
}

}  // namespace panelhost
