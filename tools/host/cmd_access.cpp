#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>

#include "tools/host/commands.h"
#include "tools/host/json_report.h"
#include "tools/host/offline_project.h"
#include "tools/host/plc_type.h"
#include "tools/host/text_table.h"
#include "tools/host/value_format.h"

namespace panelhost {

namespace {

// One read request carries at most this many tags and about this many value bytes, so
// that the reply fits one Modbus TCP frame.
constexpr std::size_t k_batch_tags = 16;
constexpr std::size_t k_batch_bytes = 200;

struct session {
  std::unique_ptr<driver_api> api;
  std::unique_ptr<tag_selection> selection;
  std::unique_ptr<host_device> device;
  std::vector<selected_tag> tags;
  std::vector<tag_refusal> refused;  // tags left out
};

std::unique_ptr<dictionary> dictionary_for(const connection_options& conn) {
  if (!conn.offline) return std::make_unique<dictionary>(download_dictionary(conn.plc, std::cerr));
  std::cerr << "offline: no controller; written values live in this process only and are "
               "gone when it exits\n";
  if (conn.offline_project.empty()) return nullptr;
  return std::make_unique<dictionary>(project_dictionary(conn.offline_project, std::cerr));
}

// all_or_nothing: one refused tag refuses the command. allow_empty: every tag may be
// refused (the session then has no device, and --json still reports them).
session open_session(const connection_options& conn, const selection_options& sel,
                     bool all_or_nothing, bool allow_empty = false) {
  session s;
  s.selection = std::make_unique<tag_selection>(sel);
  const std::unique_ptr<dictionary> dict = dictionary_for(conn);
  s.tags = s.selection->requests(dict.get(), s.refused);
  for (const tag_refusal& r : s.refused) std::cerr << "panelhost: " << r.text() << '\n';
  for (const tag_refusal& n : s.selection->notes()) {
    std::cerr << "panelhost: note: " << n.text() << '\n';
  }
  if (!s.refused.empty() && all_or_nothing) {
    throw std::runtime_error("nothing written: " + std::to_string(s.refused.size()) +
                             " tag(s) refused");
  }
  if (s.tags.empty() && !s.refused.empty()) {
    if (allow_empty) return s;
    throw std::runtime_error("no tag left to access");
  }
  s.api = std::make_unique<driver_api>(conn.library);
  s.device = std::make_unique<host_device>(*s.api, s.selection->tag_file(), conn.offline);
  s.device->connect(conn.offline ? "0.0.0.0" : conn.plc);
  return s;
}

std::string type_text(const host_request& r) {
  std::string text = plc_type_name(r.code);
  if (r.count > 1) text += "[" + std::to_string(r.count) + "]";
  if (r.bit >= 0) text += " bit " + std::to_string(r.bit);
  return text;
}

std::string value_text(const host_request& r, const host_result& result) {
  if (!result.ok) return "(read failed)";
  return r.bit >= 0 ? format_bits(result.units, r.count)
                    : format_value(r.code, result.units, r.count);
}

std::size_t wire_bytes(const host_request& r) {
  const plc_type* t = find_plc_type(r.code);
  return static_cast<std::size_t>(r.count) * (t ? t->size : 0);
}

std::vector<host_result> read_all(host_device& device, const std::vector<selected_tag>& tags) {
  std::vector<host_result> out;
  std::vector<host_request> batch;
  std::size_t bytes = 0;
  auto flush = [&] {
    for (host_result& r : device.read(batch)) out.push_back(std::move(r));
    batch.clear();
    bytes = 0;
  };
  for (const selected_tag& t : tags) {
    const std::size_t size = wire_bytes(t.request);
    if (!batch.empty() && (batch.size() == k_batch_tags || bytes + size > k_batch_bytes)) flush();
    batch.push_back(t.request);
    bytes += size;
  }
  if (!batch.empty()) flush();
  return out;
}

// Prints the table; false when a tag could not be read.
bool print_values(std::ostream& out, const std::vector<selected_tag>& tags,
                  const std::vector<host_result>& results, std::size_t* lines = nullptr) {
  text_table table({"tag", "type", "value"});
  bool ok = true;
  for (std::size_t i = 0; i < tags.size(); ++i) {
    table.add({tags[i].name, type_text(tags[i].request), value_text(tags[i].request, results[i])});
    ok = ok && results[i].ok;
  }
  table.print(out);
  if (lines) *lines = table.line_count();
  return ok;
}

// What a panel does when a round fails: drop the connection (Timeout) and start the
// handshake again (GetInitCmdEx2); the next round tells whether it worked.
void reconnect(host_device& device, const std::string& address, unsigned round) {
  std::cerr << "panelhost: round " << round
            << ": read failed; reconnecting (Timeout, GetInitCmdEx2)\n";
  device.drop();
  try {
    device.connect(address);
    std::cerr << "panelhost: reconnected to " << address << '\n';
  } catch (const std::runtime_error& e) {
    std::cerr << "panelhost: " << e.what() << "; trying again next round\n";
  }
}

std::string clock_text() {
  const std::time_t now = std::time(nullptr);
  char buf[16];
  std::strftime(buf, sizeof buf, "%H:%M:%S", std::localtime(&now));
  return buf;
}

void print_json(std::ostream& out, const session& s, const std::vector<host_result>& results) {
  json_report report("read");
  for (const tag_refusal& r : s.refused) {
    report.add_tag(r.name, false, {{"reason", r.reason}, {"message", r.message}});
  }
  for (std::size_t i = 0; i < s.tags.size(); ++i) {
    const host_request& r = s.tags[i].request;
    report.add_tag(s.tags[i].name, results[i].ok,
                   {{"type", type_text(r)}, {"value", value_text(r, results[i])}});
  }
  report.print(out);
}

}  // namespace

int run_read(const connection_options& conn, const selection_options& sel, bool as_json) {
  session s = open_session(conn, sel, false, as_json);
  const std::vector<host_result> results =
      s.device ? read_all(*s.device, s.tags) : std::vector<host_result>{};
  bool ok = s.refused.empty();
  for (const host_result& r : results) ok = ok && r.ok;
  if (as_json) {
    print_json(std::cout, s, results);
  } else {
    print_values(std::cout, s.tags, results);
  }
  return ok ? 0 : 1;
}

int run_write(const connection_options& conn, selection_options sel,
              const std::vector<std::string>& assignments) {
  std::vector<std::pair<std::string, std::string>> values;
  sel.names.clear();
  for (const std::string& a : assignments) {
    values.push_back(parse_assignment(a));
    sel.names.push_back(values.back().first);
  }
  session s = open_session(conn, sel, true);
  // Encode everything first: a bad value writes nothing.
  std::vector<write_data> data;
  for (std::size_t i = 0; i < s.tags.size(); ++i) {
    const host_request& r = s.tags[i].request;
    try {
      data.push_back(encode_request_value(r.code, values[i].second, r.count));
    } catch (const bad_value& e) {
      throw bad_value("nothing written: " + s.tags[i].name + ": " + e.what());
    }
  }
  for (std::size_t i = 0; i < s.tags.size(); ++i) s.device->write(s.tags[i].request, data[i]);
  std::cout << "read back:\n";
  return print_values(std::cout, s.tags, read_all(*s.device, s.tags)) ? 0 : 1;
}

int run_watch(const connection_options& conn, const selection_options& sel, unsigned interval_ms,
              unsigned rounds, bool plain) {
  session s = open_session(conn, sel, false);
  const bool redraw = !plain && isatty(STDOUT_FILENO) != 0;
  std::size_t last_lines = 0;
  bool ok = true;
  for (unsigned round = 1; rounds == 0 || round <= rounds; ++round) {
    if (round > 1) std::this_thread::sleep_for(std::chrono::milliseconds(interval_ms));
    const std::vector<host_result> results = read_all(*s.device, s.tags);
    if (!conn.offline &&
        std::none_of(results.begin(), results.end(), [](const host_result& r) { return r.ok; })) {
      reconnect(*s.device, conn.plc, round);
    }
    if (redraw) {
      // Move up over the previous table and clear to the end of the screen.
      if (last_lines != 0) std::cout << "\x1b[" << last_lines << "A\x1b[J";
      std::cout << "round " << round << "  " << clock_text() << '\n';
      ok = print_values(std::cout, s.tags, results, &last_lines) && ok;
      ++last_lines;
    } else {
      std::ostringstream line;
      line << clock_text();
      for (std::size_t i = 0; i < s.tags.size(); ++i) {
        ok = ok && results[i].ok;
        line << ' ' << s.tags[i].name << '=' << value_text(s.tags[i].request, results[i]);
      }
      std::cout << line.str() << '\n';
    }
    std::cout.flush();
  }
  return ok && s.refused.empty() ? 0 : 1;
}

}  // namespace panelhost
