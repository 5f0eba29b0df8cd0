// panelhost: drives libunitydrv.so the way an operator panel does, from the command line.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>

#include "tools/host/commands.h"
#include "tools/host/library_version.h"
#include "tools/host/tag_export.h"
#include "unitydrv/version.h"

using namespace panelhost;

namespace {

// The driver panelhost loads without --lib: the one installed beside it (the library
// directory next to the bin/ it runs from, /usr/lib/<triplet> for /usr/bin as the packages
// lay them out), else the one of the build tree it was built in, else whatever the dynamic
// loader finds under the library's soname.
std::string default_library() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error) {
    const auto beside =
        self.parent_path().parent_path() / PANELHOST_LIBRARY_DIR / PANELHOST_LIBRARY_SONAME;
    if (std::filesystem::exists(beside, error)) return beside.string();
  }
  if (std::filesystem::exists(PANELHOST_DEFAULT_LIBRARY, error)) return PANELHOST_DEFAULT_LIBRARY;
  return PANELHOST_LIBRARY_SONAME;
}

// Options that name where the dictionary comes from; --offline is recorded in `offline`.
std::vector<CLI::Option*> offline_options;

CLI::Option* add_connection(CLI::App* cmd, connection_options& conn, bool needs_plc) {
  cmd->add_option("--lib", conn.library, "path of libunitydrv.so (default: the installed one)");
  auto* plc = cmd->add_option("--plc", conn.plc, "controller IPv4 address (port 502)");
  if (needs_plc) plc->required();
  return plc;
}

void add_offline(CLI::App* cmd, connection_options& conn, CLI::Option* plc,
                 const char* description) {
  auto* offline = cmd->add_option("--offline", conn.offline_project, description)->expected(0, 1);
  offline->excludes(plc);
  offline_options.push_back(offline);
}

void add_guard(CLI::App* cmd, connection_options& conn) {
  cmd->add_flag("--guard", conn.guard,
                "guarded mode (UNITYDRV_GUARD=1): the driver refuses, with status 2, every tag "
                "whose value it cannot vouch for, instead of delivering another variable's or an "
                "old value");
}

void add_access(CLI::App* cmd, connection_options& conn, selection_options& sel) {
  add_offline(cmd, conn, add_connection(cmd, conn, false),
              "no controller: the driver keeps written values for this process only; "
              "types from PROJECT.json (a simulator project) when given");
  auto* tags = cmd->add_option("--tags", sel.tag_file, "tag file");
  cmd->add_option("--list", sel.list_file, "tag list (Name or Name:TYPE per line)")->excludes(tags);
  // One NAME=TYPE per --type, so that the tag names after it stay names.
  cmd->add_option("--type", sel.types, "NAME=TYPE: PLC type of a tag (INT, REAL, STRING[20] ...)")
      ->allow_extra_args(false);
  add_guard(cmd, conn);
  cmd->add_option("--index", sel.index, "first array element");
  auto* count = cmd->add_option("--count", sel.count, "number of elements");
  // The driver reads as many words as bits, so a bit read takes one bit.
  cmd->add_option("--bit", sel.bit, "read this bit of the value")
      ->check(CLI::Range(0, 253))
      ->excludes(count);
}

int check_plc(connection_options& conn) {
  for (const CLI::Option* o : offline_options) conn.offline = conn.offline || o->count() > 0;
  if (!conn.offline && conn.plc.empty()) {
    std::cerr << "panelhost: --plc ADDR is required (or --offline)\n";
    return 2;
  }
  if (conn.offline) return 0;
  try {
    check_ipv4_address(conn.plc);
  } catch (const std::invalid_argument& e) {
    std::cerr << "panelhost: " << e.what() << '\n';
    return 2;
  }
  return 0;
}

// Texts of the standard library and of the JSON parser mean nothing to an integrator; the
// commands catch them where they can name the tag or file. One that gets here anyway is
// not shown raw.
bool raw_library_text(const std::string& text) {
  for (const char* mark : {"_M_", "basic_string", "json.exception", "bad lexical cast",
                           "std::", "vector::", "map::at", "stoul", "stoi"}) {
    if (text.find(mark) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Drives the driver libunitydrv.so like an operator panel"};
  app.set_version_flag("--version", [] {
    return "panelhost " UNITYDRV_VERSION "\n" + loaded_library_version(default_library());
  });
  app.require_subcommand(1);
  app.footer(
      "Exit status: 0 success; 1 a failure at run time (controller unreachable, a read failed, "
      "a tag unresolved or refused, a value read back differs from the one written); 2 a usage "
      "error (a bad option, a missing argument, an address that is not dotted IPv4).\n"
      "Guarded mode: read, write and watch take --guard, which loads the driver with "
      "UNITYDRV_GUARD=1: it then refuses (status 2) each tag whose value it cannot vouch for "
      "(an unresolved name, a subscript or elements outside the array, a late or cut reply, a "
      "device not ready ...) instead of delivering another variable's value or an old one; "
      "tags check --guard reports what it refuses.");
  connection_options conn;
  conn.library = default_library();
  selection_options sel;

  auto* tags = app.add_subcommand("tags", "build or list tag files")->require_subcommand(1);
  std::string list, out, file;
  bool wide = false;
  uint32_t offset = 0;
  auto* build = tags->add_subcommand("build", "tag file from a list of names");
  build->add_option("LIST", list)->required();
  build->add_option("OUT", out)->required();
  build->add_flag("--wide", wide,
                  "16-bit names (the driver reads each one only up to its first zero byte)");
  build->add_option("--offset", offset, "bytes before the tag file");
  auto* show = tags->add_subcommand("list", "the tags of a tag file");
  show->add_option("FILE", file)->required();
  show->add_option("--offset", offset, "bytes before the tag file");
  export_options exported;
  auto* export_cmd = tags->add_subcommand("export", "every addressable tag as a tag list");
  add_offline(export_cmd, conn, add_connection(export_cmd, conn, false),
              "PROJECT.json: the tags of a simulator project");
  export_cmd->add_option("OUT", out, "tag list to write (Name:TYPE per line)")->required();
  export_cmd->add_flag("--elements", exported.elements, "also each element of an array");
  export_cmd->add_option("--filter", exported.filter, "only tags matching this glob");
  bool as_json = false;
  auto* check = tags->add_subcommand("check", "resolve a tag file as the driver does");
  add_offline(check, conn, add_connection(check, conn, false),
              "PROJECT.json: check against a simulator project");
  check->add_option("FILE", file)->required();
  check->add_option("--offset", offset, "bytes before the tag file");
  check->add_flag("--json", as_json, "JSON output");
  check->add_flag("--guard", conn.guard, "also report what the driver refuses in guarded mode");

  auto* read = app.add_subcommand("read", "read tags and print their values");
  add_access(read, conn, sel);
  read->add_option("NAME", sel.names, "tags to read (default: every tag)");
  read->add_flag("--json", as_json, "JSON output");

  std::vector<std::string> assignments;
  auto* write = app.add_subcommand("write", "write tags and read them back");
  add_access(write, conn, sel);
  write->add_option("NAME=VALUE", assignments)->required();
  write->add_flag("--json", as_json, "JSON output");
  write->add_flag("--memory-bit", sel.memory_bit,
                  "with --bit: write the bit although the driver only keeps it in its memory");

  watch_options watching;
  auto* watch = app.add_subcommand("watch", "poll tags and show a live table");
  add_access(watch, conn, sel);
  watch->add_option("NAME", sel.names, "tags to watch (default: every tag)");
  watch->add_option("--interval", watching.interval_ms, "milliseconds between rounds");
  watch->add_option("--rounds", watching.rounds, "stop after this many rounds (0: never)");
  watch->add_flag("--plain", watching.plain, "one line per round, no redraw");
  watch->add_flag("--json", watching.json, "one JSON object per round, on one line");

  auto* browse = app.add_subcommand("browse", "print the controller's data dictionary");
  add_offline(browse, conn, add_connection(browse, conn, false),
              "PROJECT.json: the dictionary of a simulator project");
  browse->add_flag("--json", as_json, "JSON output");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // The parser's own codes become the one usage status; --help and --version exit 0.
    return app.exit(e) == 0 ? 0 : 2;
  }
  try {
    if (build->parsed()) return run_tags_build(list, out, wide, offset);
    if (show->parsed()) return run_tags_list(file, offset);
    if (int rc = check_plc(conn)) return rc;
    // The library reads the mode once, when it is loaded: set before any command loads it.
    if (conn.guard) ::setenv("UNITYDRV_GUARD", "1", 1);
    // "--offline Name" took a tag name for the project; a project is a .json file.
    const std::string& project = conn.offline_project;
    if (!project.empty() && (project.size() < 5 || project.substr(project.size() - 5) != ".json")) {
      sel.names.insert(sel.names.begin(), project);
      conn.offline_project.clear();
    }
    if (browse->parsed()) return run_browse(conn, as_json);
    if (export_cmd->parsed()) return run_tags_export(conn, out, exported);
    if (check->parsed()) return run_tags_check(conn, file, offset, as_json);
    if (read->parsed()) return run_read(conn, sel, as_json);
    if (write->parsed()) return run_write(conn, sel, assignments, as_json);
    return run_watch(conn, sel, watching);
  } catch (const std::exception& e) {
    const std::string text = e.what();
    std::cerr << "panelhost: "
              << (raw_library_text(text) ? "unexpected failure inside panelhost; nothing more "
                                           "is known (please report the command line)"
                                         : text)
              << '\n';
    return 1;
  }
}
