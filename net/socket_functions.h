// Address text helpers.
#pragma once

#include <string>

namespace orm {

// ip in network byte order; dotted-quad text.
std::string ip_to_string(unsigned long ip);
// Local address of a bound or connected descriptor as dotted-quad text.
std::string get_local_ip(int descriptor);

}  // namespace orm
