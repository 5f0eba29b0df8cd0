// panelhost: drives libunitydrv.so the way an operator panel does, from the command line.
#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/host/commands.h"
#include "unitydrv/version.h"

using namespace panelhost;

namespace {

void add_connection(CLI::App* cmd, connection_options& conn, bool needs_plc) {
  cmd->add_option("--lib", conn.library, "path of libunitydrv.so");
  auto* plc = cmd->add_option("--plc", conn.plc, "controller IPv4 address");
  if (needs_plc) plc->required();
}

void add_access(CLI::App* cmd, connection_options& conn, selection_options& sel) {
  add_connection(cmd, conn, false);
  cmd->add_flag("--offline", conn.offline, "serve from the tag file only (no controller)");
  auto* tags = cmd->add_option("--tags", sel.tag_file, "tag file");
  cmd->add_option("--list", sel.list_file, "tag list (Name or Name:TYPE per line)")->excludes(tags);
  cmd->add_option("--type", sel.types, "NAME=TYPE: PLC type of a tag (INT, REAL, STRING[20] ...)");
  cmd->add_option("--index", sel.index, "first array element");
  auto* count = cmd->add_option("--count", sel.count, "number of elements");
  // The driver reads as many words as bits, so a bit read takes one bit.
  cmd->add_option("--bit", sel.bit, "read this bit of the value")
      ->check(CLI::Range(0, 253))
      ->excludes(count);
}

int check_plc(const connection_options& conn) {
  if (!conn.offline && conn.plc.empty()) {
    std::cerr << "panelhost: --plc ADDR is required (or --offline)\n";
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Drives the driver libunitydrv.so like an operator panel"};
  app.set_version_flag("--version", "panelhost " UNITYDRV_VERSION);
  app.require_subcommand(1);
  connection_options conn;
  conn.library = PANELHOST_DEFAULT_LIBRARY;
  selection_options sel;

  auto* tags = app.add_subcommand("tags", "build or list tag files")->require_subcommand(1);
  std::string list, out, file;
  bool wide = false;
  uint32_t offset = 0;
  auto* build = tags->add_subcommand("build", "tag file from a list of names");
  build->add_option("LIST", list)->required();
  build->add_option("OUT", out)->required();
  build->add_flag("--wide", wide, "16-bit names");
  build->add_option("--offset", offset, "bytes before the tag file");
  auto* show = tags->add_subcommand("list", "the tags of a tag file");
  show->add_option("FILE", file)->required();
  show->add_option("--offset", offset, "bytes before the tag file");

  auto* read = app.add_subcommand("read", "read tags and print their values");
  add_access(read, conn, sel);
  read->add_option("NAME", sel.names, "tags to read (default: every tag)");

  std::vector<std::string> assignments;
  auto* write = app.add_subcommand("write", "write tags and read them back");
  add_access(write, conn, sel);
  write->add_option("NAME=VALUE", assignments)->required();

  unsigned interval = 1000, rounds = 0;
  bool plain = false;
  auto* watch = app.add_subcommand("watch", "poll tags and show a live table");
  add_access(watch, conn, sel);
  watch->add_option("NAME", sel.names, "tags to watch (default: every tag)");
  watch->add_option("--interval", interval, "milliseconds between rounds");
  watch->add_option("--rounds", rounds, "stop after this many rounds (0: never)");
  watch->add_flag("--plain", plain, "one line per round, no redraw");

  auto* browse = app.add_subcommand("browse", "print the controller's data dictionary");
  add_connection(browse, conn, true);

  CLI11_PARSE(app, argc, argv);
  try {
    if (build->parsed()) return run_tags_build(list, out, wide, offset);
    if (show->parsed()) return run_tags_list(file, offset);
    if (browse->parsed()) return run_browse(conn.plc);
    if (int rc = check_plc(conn)) return rc;
    if (read->parsed()) return run_read(conn, sel);
    if (write->parsed()) return run_write(conn, sel, assignments);
    return run_watch(conn, sel, interval, rounds, plain);
  } catch (const std::exception& e) {
    std::cerr << "panelhost: " << e.what() << '\n';
    return 1;
  }
}
