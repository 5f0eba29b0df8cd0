#include <iostream>

#include "tools/common/tag_file_writer.h"
#include "tools/host/commands.h"
#include "tools/host/text_table.h"

namespace panelhost {

int run_tags_build(const std::string& list, const std::string& out, bool wide, uint32_t offset) {
  std::vector<tag_file::record> records;
  for (const tag_choice& t : read_tag_list(list)) records.push_back({t.name, 0, 0, 0});
  if (!tag_file::write(out, records, wide, offset)) {
    std::cerr << "panelhost: cannot write tag file " << out << '\n';
    return 1;
  }
  std::cout << "wrote " << records.size() << " tags to " << out << (wide ? " (16-bit names)" : "")
            << '\n';
  return 0;
}

int run_tags_list(const std::string& file, uint32_t offset) {
  text_table table({"#", "tag"});
  const std::vector<std::string> names = read_tag_names(file, offset);
  for (std::size_t i = 0; i < names.size(); ++i) table.add({std::to_string(i), names[i]});
  table.print(std::cout);
  return 0;
}

}  // namespace panelhost
