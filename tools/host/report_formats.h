// The forms panelhost prints results in: aligned text tables, the one JSON report of
// --json output, and values typed for JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace panelhost {

// Prints rows as aligned columns under a header line.
class text_table {
 public:
  explicit text_table(std::vector<std::string> header);
  void add(std::vector<std::string> row);
  void print(std::ostream& out) const;
  std::size_t line_count() const { return rows_.size() + 2; }

 private:
  std::vector<std::string> header_;
  std::vector<std::vector<std::string>> rows_;
};

// The one JSON shape of --json output (read, browse, tags check):
//   {"command": "...", "ok": true|false, "tags": [{"name": "...", "ok": true|false, ...}], ...}
// "ok" at the top is true when every tag is; a tag that fails carries "reason" and
// "message". Command-specific fields sit beside "tags".
class json_report {
 public:
  explicit json_report(const std::string& command);
  void add_tag(const std::string& name, bool ok, const nlohmann::json& fields);
  void set(const std::string& key, nlohmann::json value);
  // The command could not run at all (the controller unreachable, a project unreadable):
  // "ok" false and "error" with the one line that says why.
  void fail(const std::string& error);
  bool ok() const { return ok_; }
  void print(std::ostream& out) const;
  void print_line(std::ostream& out) const;  // on one line, as watch prints each round

 private:
  nlohmann::json doc_;
  bool ok_ = true;
};

// A value as a script reads it: the text a table prints, typed for JSON.
// "-42" and "1450.5" become numbers, "16#0018" the number 24, TRUE/FALSE booleans, a
// quoted STRING its text, "[a, b]" and a run of bits "1 0 1" arrays. Anything else (a
// REAL that is not finite) stays text.
nlohmann::json value_json(const std::string& text);

}  // namespace panelhost
