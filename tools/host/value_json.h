// A value as a script reads it: the text a table prints, typed for JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace panelhost {

// "-42" and "1450.5" become numbers, "16#0018" the number 24, TRUE/FALSE booleans, a
// quoted STRING its text, "[a, b]" and a run of bits "1 0 1" arrays. Anything else (a
// REAL that is not finite) stays text.
nlohmann::json value_json(const std::string& text);

}  // namespace panelhost
