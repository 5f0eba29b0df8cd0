// panelhost: drives libunitydrv.so the way an operator panel does, from the command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>

#include "tools/host/commands.h"
#include "tools/host/device_access.h"
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
std::vector<CLI::Option*> plc_options;

CLI::Option* add_connection(CLI::App* cmd, connection_options& conn, bool needs_plc) {
  cmd->add_option("--lib", conn.library, "path of libunitydrv.so (default: the installed one)");
  auto* plc = cmd->add_option("--plc", conn.plc, "controller IPv4 address (port 502)");
  if (needs_plc) plc->required();
  plc_options.push_back(plc);
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
  cmd->add_option("--count", sel.count, "number of elements (with --bit: of bits)");
  cmd->add_option("--bit", sel.bit, "read this bit of the value (with --count: from this bit on)")
      ->check(CLI::Range(0, 253));
}

int check_plc(connection_options& conn) {
  for (const CLI::Option* o : offline_options) conn.offline = conn.offline || o->count() > 0;
  if (!conn.offline && conn.plc.empty()) {
    const bool given = std::any_of(plc_options.begin(), plc_options.end(),
                                   [](const CLI::Option* o) { return o->count() > 0; });
    std::cerr << (given ? "panelhost: --plc needs an IPv4 address (a.b.c.d)\n"
                        : "panelhost: --plc ADDR is required (or --offline)\n");
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

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// "--offline X" took X for the project; a project is a .json file, and anything else is a
// tag, which offline needs its type for (Name:TYPE, --type, or a list that gives it). What
// is neither, such as a misspelt project file, is a usage error.
int offline_argument(connection_options& conn, selection_options& sel) {
  const std::string given = conn.offline_project;
  if (given.empty() || ends_with(given, ".json")) return 0;
  const bool typed = given.find(':') != std::string::npos || !sel.list_file.empty() ||
                     std::any_of(sel.types.begin(), sel.types.end(), [&](const std::string& t) {
                       return t.rfind(given + "=", 0) == 0;
                     });
  std::error_code error;
  if (!typed || std::filesystem::exists(given, error)) {
    std::cerr << "panelhost: --offline '" << given
              << "' is neither a project file (.json) nor a tag (offline a tag needs its "
                 "type: Name:TYPE or --type Name=TYPE)\n";
    return 2;
  }
  sel.names.insert(sel.names.begin(), given);
  conn.offline_project.clear();
  return 0;
}

// Every option and subcommand of the command line, filled by the parser.
struct command_line {
  connection_options conn;
  selection_options sel;
  std::string list, out, file;
  bool wide = false;
  bool as_json = false;
  uint32_t offset = 0;
  export_options exported;
  std::vector<std::string> assignments;
  watch_options watching;
  CLI::App* build = nullptr;
  CLI::App* show = nullptr;
  CLI::App* export_cmd = nullptr;
  CLI::App* check = nullptr;
  CLI::App* read = nullptr;
  CLI::App* write = nullptr;
  CLI::App* watch = nullptr;
  CLI::App* browse = nullptr;
};

const char* const k_footer =
    "Exit status: 0 success; 1 a failure at run time (controller unreachable, a read failed, "
    "a tag unresolved or refused, a value read back differs from the one written); 2 a usage "
    "error (a bad option, a missing argument, an address that is not dotted IPv4).\n"
    "Guarded mode: read, write and watch take --guard, which loads the driver with "
    "UNITYDRV_GUARD=1: it then refuses (status 2) each tag whose value it cannot vouch for "
    "(an unresolved name, a subscript or elements outside the array, a late or cut reply, a "
    "device not ready ...) instead of delivering another variable's value or an old one; "
    "tags check --guard reports what it refuses.";

void declare_tag_files(CLI::App& tags, command_line& c) {
  c.build = tags.add_subcommand("build", "tag file from a list of names");
  c.build->add_option("LIST", c.list)->required();
  c.build->add_option("OUT", c.out)->required();
  c.build->add_flag("--wide", c.wide,
                    "16-bit names (the driver reads each one only up to its first zero byte)");
  c.build->add_option("--offset", c.offset, "bytes before the tag file");
  c.show = tags.add_subcommand("list", "the tags of a tag file");
  c.show->add_option("FILE", c.file)->required();
  c.show->add_option("--offset", c.offset, "bytes before the tag file");
}

void declare_tag_checks(CLI::App& tags, command_line& c) {
  c.export_cmd = tags.add_subcommand("export", "every addressable tag as a tag list");
  add_offline(c.export_cmd, c.conn, add_connection(c.export_cmd, c.conn, false),
              "PROJECT.json: the tags of a simulator project");
  c.export_cmd->add_option("OUT", c.out, "tag list to write (Name:TYPE per line)")->required();
  c.export_cmd->add_flag("--elements", c.exported.elements, "also each element of an array");
  c.export_cmd->add_option("--filter", c.exported.filter, "only tags matching this glob");
  c.check = tags.add_subcommand("check", "resolve a tag file as the driver does");
  add_offline(c.check, c.conn, add_connection(c.check, c.conn, false),
              "PROJECT.json: check against a simulator project");
  c.check->add_option("FILE", c.file)->required();
  c.check->add_option("--offset", c.offset, "bytes before the tag file");
  c.check->add_flag("--json", c.as_json, "JSON output");
  c.check->add_flag("--guard", c.conn.guard, "also report what the driver refuses in guarded mode");
}

void declare_reads(CLI::App& app, command_line& c) {
  c.read = app.add_subcommand("read", "read tags and print their values");
  add_access(c.read, c.conn, c.sel);
  c.read->add_option("NAME", c.sel.names, "tags to read (default: every tag)");
  c.read->add_flag("--json", c.as_json, "JSON output");
  c.watch = app.add_subcommand("watch", "poll tags and show a live table");
  add_access(c.watch, c.conn, c.sel);
  c.watch->add_option("NAME", c.sel.names, "tags to watch (default: every tag)");
  c.watch->add_option("--interval", c.watching.interval_ms, "milliseconds between rounds");
  c.watch->add_option("--rounds", c.watching.rounds, "stop after this many rounds (0: never)");
  c.watch->add_flag("--plain", c.watching.plain, "one line per round, no redraw");
  c.watch->add_flag("--json", c.watching.json, "one JSON object per round, on one line");
  c.browse = app.add_subcommand("browse", "print the controller's data dictionary");
  add_offline(c.browse, c.conn, add_connection(c.browse, c.conn, false),
              "PROJECT.json: the dictionary of a simulator project");
  c.browse->add_flag("--json", c.as_json, "JSON output");
}

void declare_writes(CLI::App& app, command_line& c) {
  c.write = app.add_subcommand("write", "write tags and read them back");
  add_access(c.write, c.conn, c.sel);
  c.write->add_option("NAME=VALUE", c.assignments)->required();
  c.write->add_flag("--json", c.as_json, "JSON output");
  c.write->add_flag("--memory-bit", c.sel.memory_bit,
                    "with --bit: write the bit although the driver only keeps it in its memory");
}

int run_command(command_line& c) {
  if (c.build->parsed()) return run_tags_build(c.list, c.out, c.wide, c.offset);
  if (c.show->parsed()) return run_tags_list(c.file, c.offset);
  if (int rc = check_plc(c.conn)) return rc;
  if (int rc = offline_argument(c.conn, c.sel)) return rc;
  // The library reads the mode once, when it is loaded: set before any command loads it.
  if (c.conn.guard) ::setenv("UNITYDRV_GUARD", "1", 1);
  if (c.browse->parsed()) return run_browse(c.conn, c.as_json);
  if (c.export_cmd->parsed()) return run_tags_export(c.conn, c.out, c.exported);
  if (c.check->parsed()) return run_tags_check(c.conn, c.file, c.offset, c.as_json);
  if (c.read->parsed()) return run_read(c.conn, c.sel, c.as_json);
  if (c.write->parsed()) return run_write(c.conn, c.sel, c.assignments, c.as_json);
  return run_watch(c.conn, c.sel, c.watching);
}

int failed(const char* reason) {
  std::cerr << "panelhost: " << reason << '\n';
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Drives the driver libunitydrv.so like an operator panel"};
  app.set_version_flag("--version", [] {
    return "panelhost " UNITYDRV_VERSION "\n" + loaded_library_version(default_library());
  });
  app.require_subcommand(1);
  app.footer(k_footer);
  command_line c;
  c.conn.library = default_library();
  CLI::App* tags = app.add_subcommand("tags", "build or list tag files")->require_subcommand(1);
  declare_tag_files(*tags, c);
  declare_tag_checks(*tags, c);
  declare_reads(app, c);
  declare_writes(app, c);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // The parser's own codes become the one usage status; --help and --version exit 0.
    return app.exit(e) == 0 ? 0 : 2;
  }
  // The commands raise their own reasons as these two types, naming the tag or file; any
  // other exception is a fault of panelhost, whose text would mean nothing to an integrator.
  try {
    return run_command(c);
  } catch (const std::invalid_argument& e) {
    return failed(e.what());
  } catch (const std::runtime_error& e) {
    return failed(e.what());
  } catch (const std::exception&) {
    return failed(
        "unexpected failure inside panelhost; nothing more is known (please report "
        "the command line)");
  }
}
