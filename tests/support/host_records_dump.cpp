// host_records_dump LIBRARY ADDRESS TAGFILE TAGLIST: one host's session with the driver (handshake,
// reads of every tag, a write, a bit write, a reconnect, a round that fails, close), printing
// every byte the driver hands back to the host as hex, one record per line. Two runs give
// the same output when the host sees the same thing: the trace test runs it with the trace
// off and on.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/common/host_records.h"

namespace {

void print(const char* what, const void* bytes, std::size_t size) {
  std::printf("%s ", what);
  for (std::size_t i = 0; i < size; ++i)
    std::printf("%02x", static_cast<const unsigned char*>(bytes)[i]);
  std::printf("\n");
}

struct session {
  loaded_driver::driver_api& lib;
  void* device = nullptr;

  void handshake() {
    uint32_t code = 99;
    const unitydrv_result r = lib.GetInitCmdEx2(&code, 0, 0, 0, &device);
    print("init", &r.word_4, sizeof r.word_4);
    print("code", &code, sizeof code);
    const int ready = lib.CheckInitCmdResponseEx2(0, 0, &device);
    print("ready", &ready, sizeof ready);
  }

  void round(const std::vector<loaded_driver::request>& wanted, uint8_t kind = 0) {
    auto req = loaded_driver::requests(device, wanted, kind);
    if (kind != 0)
      req[0].write.write_count = 1, req[0].write_words[0] = 1234,
      req[0].write.bit.write_bit_value = 1;
    const unitydrv_result r = lib.OutputFilterEx(req.data(), static_cast<int>(req.size()));
    print("output", &r.byte_2, 6);
    // The driver writes the status bytes 4..8 of a request and nothing else.
    for (const auto& one : req) print("request", &one, 64);
    loaded_driver::input_round in(device, req.size());
    lib.InputFilterEx(in.results.data(), nullptr, in.infos.data(), static_cast<int>(req.size()));
    for (const auto& result : in.results) print("result", &result, sizeof result);
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {  // the tag list (the names of the tag file) goes unused
    std::fprintf(stderr, "usage: host_records_dump LIBRARY ADDRESS TAGFILE TAGLIST\n");
    return 2;
  }
  loaded_driver::driver_api lib(argv[1]);
  const unitydrv_init_params params = loaded_driver::init_params_of(argv[2]);
  lib.InitEx(0, &params);
  session s{lib};
  const int started = lib.StartDeviceEx(0, &s.device, argv[3], 0);
  print("start", &started, sizeof started);
  s.handshake();
  // The tags of examples/plant_tags.txt by position: Motor1.Speed, Counter, Levels, Name,
  // Alarms (its bit 3 as well), an unresolved name.
  const std::vector<loaded_driver::request> reads = {{0, UNITYDRV_TYPE_REAL},
                                                    {11, UNITYDRV_TYPE_INT},
                                                    {18, UNITYDRV_TYPE_INT, 2, 3},
                                                    {19, UNITYDRV_TYPE_STRING, 0, 8},
                                                    {14, UNITYDRV_TYPE_WORD, 0, 1, 4}};
  s.round(reads);
  s.round({{11, UNITYDRV_TYPE_INT}}, 1);            // write Counter = 1234
  s.round({{14, UNITYDRV_TYPE_WORD, 0, 1, 2}}, 1);  // bit 1 of Alarms: kept, not sent
  s.round(reads);
  lib.Timeout(0, s.device);
  s.round(reads);  // no connection: the round fails and says so once
  s.round(reads);
  s.handshake();
  s.round(reads);
  lib.CloseDevice(0, s.device);
  return 0;
}
