// The one JSON shape of --json output (read, browse, tags check):
//   {"command": "...", "ok": true|false, "tags": [{"name": "...", "ok": true|false, ...}], ...}
// "ok" at the top is true when every tag is; a tag that fails carries "reason" and
// "message". Command-specific fields sit beside "tags".
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

namespace panelhost {

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

}  // namespace panelhost
