#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>

#include "tools/host/commands.h"
#include "tools/host/dictionary.h"
#include "tools/host/plc_type.h"
#include "tools/host/report_formats.h"
#include "tools/host/value_format.h"
#include "tools/plcsim/plcsim.h"
#include "unitydrv/unitydrv.h"

namespace panelhost {

namespace {

// One read request carries at most this many tags and about this many value bytes, so
// that the reply fits one Modbus TCP frame.
constexpr std::size_t k_batch_tags = 16;
constexpr std::size_t k_batch_bytes = 200;

struct session {
  std::unique_ptr<driver_api> api;
  std::unique_ptr<tag_selection> selection;
  std::unique_ptr<loaded_driver::device> device;
  std::vector<selected_tag> tags;
  std::vector<tag_refusal> refused;  // tags left out
  std::unique_ptr<dictionary> dict;  // what the tags were checked against
};

std::unique_ptr<dictionary> dictionary_for(const connection_options& conn) {
  if (!conn.offline) return std::make_unique<dictionary>(download_dictionary(conn.plc, std::cerr));
  std::cerr << "offline: no controller; written values live in this process only and are "
               "gone when it exits\n";
  if (conn.offline_project.empty()) return nullptr;
  return std::make_unique<dictionary>(project_dictionary(conn.offline_project, std::cerr));
}

void seed_from_project(session& s, const std::string& project);

// all_or_nothing: one refused tag refuses the command. allow_empty: every tag may be
// refused (the session then has no device, and --json still reports them).
session open_session(const connection_options& conn, const selection_options& sel,
                     bool all_or_nothing, bool allow_empty = false) {
  session s;
  s.dict = dictionary_for(conn);
  s.selection = std::make_unique<tag_selection>(sel);
  s.tags = s.selection->requests(s.dict.get(), s.refused);
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
  s.device = start_device(*s.api, s.selection->tag_file(), conn.offline);
  connect(*s.device, conn.offline ? "0.0.0.0" : conn.plc);
  if (!conn.offline_project.empty()) seed_from_project(s, conn.offline_project);
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
  const plc_type* t = wire::find_plc_type(r.code);
  return static_cast<std::size_t>(r.count) * (t ? t->size : 0);
}

std::vector<host_result> read_all(loaded_driver::device& device,
                                  const std::vector<selected_tag>& tags) {
  std::vector<host_result> out;
  std::vector<host_request> batch;
  std::size_t bytes = 0;
  auto flush = [&] {
    for (host_result& r : read(device, batch)) out.push_back(std::move(r));
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

// An offline device starts from the project's initial values: the driver reads them from
// the project served on a loopback address, and they are written into the offline device.
void seed_from_project(session& s, const std::string& project) {
  plcsim::server sim(plcsim::load_project_file(project));
  if (!sim.start_on_free_loopback()) {
    throw std::runtime_error("cannot serve project " + project + " on a loopback address");
  }
  std::vector<selected_tag> whole = s.tags;
  for (selected_tag& t : whole) t.request.bit = -1;  // the offline value is the whole one
  std::vector<host_result> values;
  {
    const auto online = start_device(*s.api, s.selection->tag_file(), false);
    connect(*online, sim.address());
    values = read_all(*online, whole);
  }
  std::size_t seeded = 0;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    const host_request& r = whole[i].request;
    if (!values[i].ok) continue;
    std::string text = format_value(r.code, values[i].units, r.count);
    if (r.code == UNITYDRV_TYPE_STRING) text = text.substr(1, text.size() - 2);
    try {
      write(*s.device, r, encode_request_value(r.code, text, r.count));
      ++seeded;
    } catch (const bad_value&) {
      // A run of bits is written one bit at a time: it starts from zeros.
    }
  }
  std::cerr << "offline: " << seeded << " of " << whole.size()
            << " tags start from the initial values of " << project << '\n';
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

// What a panel does when a round fails: close the device and start it again (CloseDevice,
// StartDeviceEx, InitEx, GetInitCmdEx2), so that a new program's dictionary replaces the
// old. The dictionary is compared first: a watched tag the new program lacks ends the
// watch (false). The next round tells whether the connection is back.
bool reconnect(session& s, const connection_options& conn, unsigned round) {
  std::cerr << "panelhost: round " << round
            << ": read failed; reconnecting (CloseDevice, StartDeviceEx, InitEx, GetInitCmdEx2)\n";
  try {
    std::unique_ptr<dictionary> now = dictionary_for(conn);
    if (const std::string changes = program_changes(*s.dict, *now); !changes.empty()) {
      std::cerr << "panelhost: controller program changed: " << changes << '\n';
      std::vector<tag_refusal> refused;
      std::vector<selected_tag> tags = s.selection->requests(now.get(), refused);
      for (const tag_refusal& r : refused) {
        std::cerr << "panelhost: in the new program, " << r.text() << '\n';
      }
      if (refused.size() > s.refused.size()) {
        std::cerr << "panelhost: stopping the watch: a watched tag is gone\n";
        return false;
      }
      s.tags = std::move(tags);
      s.dict = std::move(now);
    }
    s.device.reset();
    s.device = start_device(*s.api, s.selection->tag_file(), false);
    connect(*s.device, conn.plc);
    std::cerr << "panelhost: reconnected to " << conn.plc << '\n';
  } catch (const std::runtime_error& e) {
    std::cerr << "panelhost: " << e.what() << "; trying again next round\n";
  }
  return true;
}

std::string clock_text() {
  const std::time_t now = std::time(nullptr);
  char buf[16];
  std::strftime(buf, sizeof buf, "%H:%M:%S", std::localtime(&now));
  return buf;
}

// Position of a tag among the names given ("Name" or "Name:TYPE"), so that JSON lists the
// tags in that order and a write finds its value.
std::size_t given_position(const selection_options& sel, const std::string& name) {
  return static_cast<std::size_t>(
      std::find_if(sel.names.begin(), sel.names.end(),
                   [&](const std::string& given) { return parse_tag_choice(given).name == name; }) -
      sel.names.begin());
}

nlohmann::json value_field(const host_request& r, const host_result& result) {
  return result.ok ? value_json(value_text(r, result)) : nlohmann::json(nullptr);
}

// One report of a round: refused tags with their reason, the others with their type and
// typed value (null when the read failed); extra(i) adds fields to tag i.
json_report round_report(const char* command, const session& s, const selection_options& sel,
                         const std::vector<host_result>& results,
                         const std::function<void(std::size_t, nlohmann::json&)>& extra = {}) {
  std::vector<std::pair<std::size_t, std::pair<std::string, nlohmann::json>>> rows;
  for (const tag_refusal& r : s.refused) {
    rows.push_back({given_position(sel, r.name),
                    {r.name, {{"ok", false}, {"reason", r.reason}, {"message", r.message}}}});
  }
  for (std::size_t i = 0; i < s.tags.size(); ++i) {
    const host_request& r = s.tags[i].request;
    nlohmann::json fields = {{"ok", i < results.size() && results[i].ok},
                             {"type", type_text(r)},
                             {"value", i < results.size() ? value_field(r, results[i]) : nullptr}};
    if (extra) extra(i, fields);
    rows.push_back({given_position(sel, s.tags[i].name), {s.tags[i].name, fields}});
  }
  std::stable_sort(rows.begin(), rows.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  json_report report(command);
  for (auto& [position, row] : rows) {
    const bool ok = row.second.at("ok").get<bool>();
    row.second.erase("ok");
    report.add_tag(row.first, ok, row.second);
  }
  return report;
}

// With --json a command that cannot start still prints its one document; the reason goes
// to stderr too, as without --json.
int json_failure(const char* command, const std::string& error, bool one_line) {
  json_report report(command);
  report.fail(error);
  one_line ? report.print_line(std::cout) : report.print(std::cout);
  std::cerr << "panelhost: " << error << '\n';
  return 1;
}

}  // namespace

int run_read(const connection_options& conn, const selection_options& sel, bool as_json) {
  session s;
  try {
    s = open_session(conn, sel, false, as_json);
  } catch (const std::runtime_error& e) {
    if (!as_json) throw;
    return json_failure("read", e.what(), false);
  }
  const std::vector<host_result> results =
      s.device ? read_all(*s.device, s.tags) : std::vector<host_result>{};
  bool ok = s.refused.empty();
  for (const host_result& r : results) ok = ok && r.ok;
  if (as_json) {
    round_report("read", s, sel, results).print(std::cout);
  } else {
    print_values(std::cout, s.tags, results);
  }
  return ok ? 0 : 1;
}

namespace {

// What a STRING write puts into the controller: the text, then zeros up to the declared
// length (the first of them terminates the text).
std::string string_write_note(const selected_tag& tag, const std::string& text) {
  const std::size_t length = tag.request.count;
  return tag.name + ": writes \"" + text + "\" (" + std::to_string(text.size()) + " of " +
         std::to_string(length) + " characters" +
         (text.size() < length ? ", then a terminating zero and zeros to the end)"
                               : ", no terminator)");
}

// Whether the library this process loads runs guarded (--guard sets the variable first).
bool guarded_library() {
  const char* value = std::getenv("UNITYDRV_GUARD");
  return value != nullptr && std::string(value) == "1";
}

// The data of one write. A bit inside a word: guarded, the driver writes the controller's
// word; otherwise only when asked for, since the driver keeps it in its own memory.
write_data encode_write(const selected_tag& tag, const std::string& text, bool memory_bit) {
  const host_request& r = tag.request;
  if (r.bit < 0) return encode_request_value(r.code, text, r.count);
  if (!memory_bit && !guarded_library()) {
    throw bad_value("bit " + std::to_string(r.bit) + " inside a " + plc_type_name(r.code) +
                    " is kept in the driver's memory only: the driver sends nothing to the "
                    "controller; add --memory-bit to write it there anyway, or --guard to "
                    "write the controller's word");
  }
  return encode_value(UNITYDRV_TYPE_BOOL, text);
}

// The written value as a read prints it, to compare with the value read back.
std::string written_text(const host_request& r, const write_data& data) {
  if (is_bit_type(r.code)) return data.bit_value ? "TRUE" : "FALSE";
  std::vector<uint16_t> units;
  if (r.code == UNITYDRV_TYPE_STRING) {
    for (uint16_t w : data.words) units.insert(units.end(), {uint16_t(w & 0xFF), uint16_t(w >> 8)});
  } else {
    units = data.words;
  }
  units.resize(result_units(r), 0);
  return format_value(r.code, units, r.count);
}

// The tags as whole values, without their bit.
std::vector<selected_tag> whole_values(std::vector<selected_tag> tags) {
  for (selected_tag& t : tags) t.request.bit = -1;
  return tags;
}

// Where a bit write inside a word went. By default the driver keeps it in its memory and
// sends nothing, so the controller's word stays as it was; guarded, it writes the word, so
// the bit read back is the bit written. True when that is what happened.
bool report_bit_write(const selected_tag& tag, const host_request& word, const host_result& before,
                      const host_result& after, bool bit_landed) {
  const std::string what = "panelhost: " + tag.name + ": bit " + std::to_string(tag.request.bit);
  if (!before.ok || !after.ok) {
    std::cerr << what << ": the controller's word could not be read back\n";
    return false;
  }
  const std::string was = value_text(word, before), now = value_text(word, after);
  if (guarded_library()) {
    std::cerr << what
              << (bit_landed ? " written to the controller" : " did not reach the controller")
              << "; its word was " << was << ", now " << now << "\n";
    return bit_landed;
  }
  if (was == now) {
    std::cerr << what << " kept in the driver's memory of this process; the controller's word "
              << "is unchanged (" << now << ")\n";
    return true;
  }
  std::cerr << what << ": the controller's word changed from " << was << " to " << now
            << ", although the driver keeps such a bit in its memory only\n";
  return false;
}

// Every value encoded before anything is written: a bad value writes nothing.
std::vector<write_data> encode_all(const std::vector<selected_tag>& tags,
                                   const selection_options& sel,
                                   const std::vector<std::pair<std::string, std::string>>& values) {
  std::vector<write_data> data;
  for (const selected_tag& tag : tags) {
    const std::string& text = values[given_position(sel, tag.name)].second;
    try {
      data.push_back(encode_write(tag, text, sel.memory_bit));
    } catch (const bad_value& e) {
      throw bad_value("nothing written: " + tag.name + ": " + e.what());
    }
    if (tag.request.code == UNITYDRV_TYPE_STRING) {
      std::cerr << "panelhost: " << string_write_note(tag, text) << '\n';
    }
  }
  return data;
}

}  // namespace

int run_write(const connection_options& conn, selection_options sel,
              const std::vector<std::string>& assignments, bool as_json) {
  std::vector<std::pair<std::string, std::string>> values;
  sel.names.clear();
  for (const std::string& a : assignments) {
    values.push_back(parse_assignment(a));
    sel.names.push_back(values.back().first);
  }
  session s = open_session(conn, sel, true);
  const std::vector<write_data> data = encode_all(s.tags, sel, values);
  // A bit inside a word: the controller's whole word before and after says where it went.
  const std::vector<selected_tag> words = whole_values(s.tags);
  const std::vector<host_result> before = read_all(*s.device, words);
  for (std::size_t i = 0; i < s.tags.size(); ++i) write(*s.device, s.tags[i].request, data[i]);
  const std::vector<host_result> back = read_all(*s.device, s.tags);
  const std::vector<host_result> after = read_all(*s.device, words);
  bool ok = true;
  std::vector<bool> differs(s.tags.size(), false);
  for (std::size_t i = 0; i < s.tags.size(); ++i) {
    const host_request& r = s.tags[i].request;
    if (r.bit >= 0) {
      const bool landed = back[i].ok && !back[i].units.empty() &&
                          (back[i].units[0] != 0) == (data[i].bit_value != 0);
      ok = report_bit_write(s.tags[i], words[i].request, before[i], after[i], landed) && ok;
      continue;
    }
    const std::string written = written_text(r, data[i]);
    if (back[i].ok && value_text(r, back[i]) != written) {
      std::cerr << "panelhost: " << s.tags[i].name << ": read back " << value_text(r, back[i])
                << ", not the " << written << " written\n";
      differs[i] = true;
      ok = false;
    }
    ok = ok && back[i].ok;
  }
  if (as_json) {
    round_report("write", s, sel, back, [&](std::size_t i, nlohmann::json& fields) {
      fields["written"] = value_json(written_text(s.tags[i].request, data[i]));
      if (differs[i]) fields["ok"] = false;
    }).print(std::cout);
  } else {
    std::cout << "read back:\n";
    print_values(std::cout, s.tags, back);
  }
  return ok ? 0 : 1;
}

int run_watch(const connection_options& conn, const selection_options& sel,
              const watch_options& options) {
  session s;
  try {
    s = open_session(conn, sel, false);
  } catch (const std::runtime_error& e) {
    if (!options.json) throw;
    return json_failure("watch", e.what(), true);
  }
  const bool redraw = !options.plain && !options.json && isatty(STDOUT_FILENO) != 0;
  std::size_t last_lines = 0;
  bool ok = true;
  for (unsigned round = 1; options.rounds == 0 || round <= options.rounds; ++round) {
    if (round > 1) std::this_thread::sleep_for(std::chrono::milliseconds(options.interval_ms));
    const std::vector<host_result> results = read_all(*s.device, s.tags);
    // A watch that got its connection back ends as well as its last round.
    ok = std::all_of(results.begin(), results.end(), [](const host_result& r) { return r.ok; });
    if (options.json) {
      json_report report = round_report("watch", s, sel, results);
      report.set("round", round);
      report.set("time", clock_text());
      report.print_line(std::cout);
    } else if (redraw) {
      // Move up over the previous table and clear to the end of the screen.
      if (last_lines != 0) std::cout << "\x1b[" << last_lines << "A\x1b[J";
      std::cout << "round " << round << "  " << clock_text() << '\n';
      print_values(std::cout, s.tags, results, &last_lines);
      ++last_lines;
    } else {
      std::ostringstream line;
      line << clock_text();
      for (std::size_t i = 0; i < s.tags.size(); ++i) {
        line << ' ' << s.tags[i].name << '=' << value_text(s.tags[i].request, results[i]);
      }
      std::cout << line.str() << '\n';
    }
    std::cout.flush();
    if (!conn.offline &&
        std::none_of(results.begin(), results.end(), [](const host_result& r) { return r.ok; }) &&
        !reconnect(s, conn, round)) {
      return 1;
    }
  }
  return ok && s.refused.empty() ? 0 : 1;
}

}  // namespace panelhost
