// The sub-commands of panelhost; each returns the process exit code.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/host/tag_selection.h"

namespace panelhost {

struct connection_options {
  std::string library;  // path of libunitydrv.so
  std::string plc;      // dotted IPv4 address
  bool offline = false;
  std::string offline_project;  // --offline PROJECT.json: types from a simulator project
  bool guard = false;           // --guard: the driver in guarded mode (UNITYDRV_GUARD=1)
};

struct export_options;

// The dictionary of --plc or of the --offline project.
dictionary load_dictionary(const connection_options& conn);

int run_tags_build(const std::string& list, const std::string& out, bool wide, uint32_t offset);
int run_tags_list(const std::string& file, uint32_t offset);
int run_tags_export(const connection_options& conn, const std::string& out,
                    const export_options& options);
int run_tags_check(const connection_options& conn, const std::string& file, uint32_t offset,
                   bool as_json);
int run_read(const connection_options& conn, const selection_options& sel, bool as_json);
struct watch_options {
  unsigned interval_ms = 1000;
  unsigned rounds = 0;  // 0: until stopped
  bool plain = false;   // one line per round, no redraw
  bool json = false;    // one JSON object per round, on one line
};

int run_write(const connection_options& conn, selection_options sel,
              const std::vector<std::string>& assignments, bool as_json);
int run_watch(const connection_options& conn, const selection_options& sel,
              const watch_options& options);
int run_browse(const connection_options& conn, bool as_json);

}  // namespace panelhost
