// Asks the loaded library itself where it resolves the one tag of each tag file: it starts
// a device on the file against a controller, reads tag 0 and takes the verdict from the
// trace's resolution line and the address from the read request it sent (the wire trace).
// Prints one line per file: "resolved BLOCK OFFSET" or "unresolved".
//   library_resolution LIBRARY CONTROLLER_IP TAG_FILE...
// Its own process: the library reads UNITYDRV_TRACE once, when it is loaded.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "tools/common/driver_api.h"
#include "tools/common/host_device.h"
#include "unitydrv/unitydrv.h"

namespace {

// Reads tag 0 once; whatever the driver throws is the round's failure, not the helper's.
void read_first_tag(loaded_driver::driver_api& api, const std::string& tag_file,
                    const std::string& address) {
  loaded_driver::device device(api);
  device.start(tag_file, 0);
  const unitydrv_init_params params = loaded_driver::init_params_of(address);
  api.InitEx(0, &params);
  try {
    if (device.get_init() != 0) return;
    device.check_init();
    loaded_driver::request r;
    r.type = UNITYDRV_TYPE_BYTE;
    device.read({r});
  } catch (const std::exception&) {
  }
}

std::vector<uint8_t> hex_bytes(const std::string& hex) {
  std::vector<uint8_t> out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return out;
}

// The block and byte of a one-item read request (function 0x22): code, block (u16 LE),
// 0x01, address bits 8..23 (u16 LE), then 0x01 and bits 0..7 for a one-element run of
// code 0x21, else bits 0..7 (and a count for a run).
bool read_item(const std::vector<uint8_t>& frame, unsigned& block, unsigned& offset) {
  if (frame.size() < 22 || frame[7] != 0x5A || frame[9] != 0x22 || frame[14] != 1) return false;
  block = frame[16] | frame[17] << 8;
  const bool single_run = frame[15] == 0x21 && frame.size() == 23;
  offset = (frame[19] | frame[20] << 8) << 8 | frame[single_run ? 22 : 21];
  return true;
}

// The verdict of one file's section of the trace.
std::string verdict(const std::string& section) {
  std::istringstream lines(section);
  bool resolved = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" resolution tags=1 resolved=1") != std::string::npos) resolved = true;
    const auto send = line.find(" send bytes=");
    unsigned block = 0, offset = 0;
    if (resolved && send != std::string::npos &&
        read_item(hex_bytes(line.substr(line.find(' ', send + 12) + 1)), block, offset)) {
      return "resolved " + std::to_string(block) + " " + std::to_string(offset);
    }
  }
  return "unresolved";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: library_resolution LIBRARY CONTROLLER_IP TAG_FILE...\n";
    return 2;
  }
  char pattern[] = "/tmp/library-resolution-XXXXXX";
  const int fd = mkstemp(pattern);
  if (fd < 0) return 1;
  close(fd);
  const std::string trace = pattern;
  setenv("UNITYDRV_TRACE", trace.c_str(), 1);
  setenv("UNITYDRV_TRACE_WIRE", "1", 1);
  std::vector<std::string> sections;
  {
    loaded_driver::driver_api api(argv[1]);
    for (int i = 3; i < argc; ++i) {
      const auto start = std::ifstream(trace, std::ios::ate).tellg();
      read_first_tag(api, argv[i], argv[2]);
      std::ifstream in(trace);
      in.seekg(start);
      sections.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
  }
  std::remove(trace.c_str());
  for (const std::string& s : sections) std::cout << verdict(s) << '\n';
  return 0;
}
