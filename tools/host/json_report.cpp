#include "tools/host/json_report.h"

namespace panelhost {

json_report::json_report(const std::string& command) {
  doc_["command"] = command;
  doc_["tags"] = nlohmann::json::array();
}

void json_report::add_tag(const std::string& name, bool ok, const nlohmann::json& fields) {
  nlohmann::json tag = {{"name", name}, {"ok", ok}};
  tag.update(fields);
  doc_["tags"].push_back(std::move(tag));
  ok_ = ok_ && ok;
}

void json_report::set(const std::string& key, nlohmann::json value) {
  doc_[key] = std::move(value);
}

void json_report::fail(const std::string& error) {
  doc_["error"] = error;
  ok_ = false;
}

void json_report::print(std::ostream& out) const {
  nlohmann::json doc = doc_;
  doc["ok"] = ok_;
  out << doc.dump(1) << '\n';
}

void json_report::print_line(std::ostream& out) const {
  nlohmann::json doc = doc_;
  doc["ok"] = ok_;
  out << doc.dump() << '\n';
}

}  // namespace panelhost
