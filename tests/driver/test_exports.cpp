// The library must export exactly the 14 entry points (read its dynamic symbol table) and
// still name its release in the file, for strings and panelhost --version.
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "unitydrv/version.h"

namespace {

std::vector<char> read_file(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(in), {});
}

template <typename Ehdr, typename Shdr, typename Sym>
std::set<std::string> defined_dynamic_symbols(const std::vector<char>& elf) {
  auto at = [&](std::size_t off, std::size_t size) {
    if (off + size > elf.size()) throw std::runtime_error("truncated ELF file");
    return elf.data() + off;
  };
  Ehdr eh;
  std::memcpy(&eh, at(0, sizeof eh), sizeof eh);
  std::vector<Shdr> sections(eh.e_shnum);
  for (std::size_t i = 0; i < sections.size(); ++i)
    std::memcpy(&sections[i], at(eh.e_shoff + i * eh.e_shentsize, sizeof(Shdr)), sizeof(Shdr));
  std::set<std::string> names;
  for (const Shdr& s : sections) {
    if (s.sh_type != SHT_DYNSYM) continue;
    const Shdr& strtab = sections.at(s.sh_link);
    for (std::size_t off = 0; off + sizeof(Sym) <= s.sh_size; off += sizeof(Sym)) {
      Sym sym;
      std::memcpy(&sym, at(s.sh_offset + off, sizeof sym), sizeof sym);
      if (sym.st_shndx == SHN_UNDEF || sym.st_name == 0) continue;
      names.insert(at(strtab.sh_offset + sym.st_name, 1));
    }
  }
  return names;
}

TEST(Exports, ExactlyTheFourteenEntryPoints) {
  std::vector<char> elf = read_file(UNITYDRV_LIBRARY_PATH);
  ASSERT_GT(elf.size(), static_cast<std::size_t>(EI_NIDENT));
  ASSERT_EQ(std::memcmp(elf.data(), ELFMAG, SELFMAG), 0);
  std::set<std::string> names =
      elf[EI_CLASS] == ELFCLASS64 ? defined_dynamic_symbols<Elf64_Ehdr, Elf64_Shdr, Elf64_Sym>(elf)
                                  : defined_dynamic_symbols<Elf32_Ehdr, Elf32_Shdr, Elf32_Sym>(elf);
  std::set<std::string> expected;
  for (const char* op :
       {"GetAttributeEx", "GetDeviceTableEx", "GetCommandSizeLimitInfo", "GetDataType",
        "GetCommParam", "SetCommParam", "InitEx", "StartDeviceEx", "GetInitCmdEx2",
        "CheckInitCmdResponseEx2", "OutputFilterEx", "InputFilterEx", "Timeout", "CloseDevice"}) {
    expected.insert(std::string("ORMAND_DRV_") + op);
  }
  EXPECT_EQ(names, expected);
  // The version text is a local object: readable in the file, not one more symbol.
  const std::string version = "@(#)libunitydrv " UNITYDRV_VERSION;
  EXPECT_NE(
      std::search(elf.begin(), elf.end(), version.c_str(), version.c_str() + version.size() + 1),
      elf.end());
}

}  // namespace
