// Tag-name operations on arbitrary text: subscript parsing, stripping and rewriting.
// Only boost::bad_lexical_cast and std::out_of_range may leave them; the rewrite's
// target is sized as its callers size it (the name plus room for a subscript), so an
// overrun shows as a sanitizer report.
#include <boost/lexical_cast.hpp>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tag_index/tag_names.h"

namespace {

template <typename Op>
void tolerate_expected(Op op) {
  try {
    op();
  } catch (const boost::bad_lexical_cast&) {
  } catch (const std::out_of_range&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  const unsigned short index = static_cast<unsigned short>(data[0] | data[1] << 8);
  const unsigned char kind = data[2] & 1 ? 211 : data[2];
  // A C string as the host hands it: the text up to the first zero byte.
  const std::string text(reinterpret_cast<const char*>(data + 3), size - 3);
  const std::string name = text.c_str();

  tolerate_expected([&] { parse_array_indices(name); });
  tolerate_expected([&] { pares_array_indices_from_subscript(name + '\0'); });
  tolerate_expected([&] {
    std::string stripped = name + '\0';
    remove_array_index(stripped);
  });
  tolerate_expected([&] { RemoveLastArraySymbol(name); });

  std::vector<char> target(name.size() + 16);
  tag_plc_tools_function_578::OverrideTagNameForNewArrayIndex(name.c_str(), target.data(), index,
                                                              kind);
  return 0;
}
