// The Unity client's share of a read cycle and of the dictionary download, without a
// socket: building read and write requests of 1, 10 and 100 items, and decoding one full
// 2048-byte page of the variables table into the session's tables map.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/unity_reply.h"
#include "unity/unity_process.h"
#include "wire/byte_cursor.h"

namespace {

// INT variables in block 1, two bytes apart: what a panel's read list mostly holds.
std::vector<read_comm> int_items(std::size_t n, bool with_data) {
  std::vector<read_comm> items(n);
  for (std::size_t i = 0; i < n; ++i) {
    items[i].location = {
        1, 0, static_cast<unsigned char>(2 * i), static_cast<unsigned char>(i >> 7), 0, 0};
    items[i].read_format = 2;
    items[i].type_id = 4;
    items[i].count = 1;
    if (with_data) items[i].data = {static_cast<unsigned char>(i), 0};
  }
  return items;
}

void BM_create_read_request(benchmark::State& state) {
  unity_process session;
  session.table_address = 0x12345678;
  std::vector<read_comm> items = int_items(static_cast<std::size_t>(state.range(0)), false);
  std::size_t size = 0;
  for (auto _ : state) {
    bool expect_reply = true;
    bool normalise = false;
    const auto frame = session.create_read_request(1, 2, expect_reply, items, normalise);
    size = frame.pdu.data.size();
    benchmark::DoNotOptimize(frame.to_raw_data());
  }
  // Header of 7 bytes and 7 bytes per INT item.
  if (size != 7 + 7 * items.size()) state.SkipWithError("unexpected request size");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_create_read_request)->Arg(1)->Arg(10)->Arg(100);

void BM_create_write_request(benchmark::State& state) {
  unity_process session;
  const std::vector<read_comm> items = int_items(static_cast<std::size_t>(state.range(0)), true);
  std::size_t size = 0;
  for (auto _ : state) {
    bool expect_reply = true;
    const auto frame = session.create_write_request(1, 2, expect_reply, items);
    size = frame.pdu.data.size();
    benchmark::DoNotOptimize(frame.to_raw_data());
  }
  // Header, then code, block, four address bytes and two value bytes per item.
  if (size != 7 + 9 * items.size()) state.SkipWithError("unexpected request size");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_create_write_request)->Arg(1)->Arg(10)->Arg(100);

// A variables-table reply filled with named records up to the 2048-byte receive buffer.
std::vector<unsigned char> full_variables_page(unsigned& records) {
  std::vector<unsigned char> message;
  wire::le_writer w(message);
  w.u8(0x00).u8(0xFE).u8(9).u32(0x1000).u16(0);  // record count patched below
  records = 0;
  for (;;) {
    char name[16];
    std::snprintf(name, sizeof name, "Var_%06u", records);
    const std::size_t record_size = 10 + std::string(name).size() + 1;
    if (8 + message.size() + record_size > 2048) break;
    w.u16(4).u16(1).u32(records * 2).u16(0);
    w.append(name, name + std::string(name).size() + 1);
    ++records;
  }
  message[7] = static_cast<unsigned char>(records);
  message[8] = static_cast<unsigned char>(records >> 8);
  return harness::modbus_reply(message, 7);
}

void BM_decode_variables_page(benchmark::State& state) {
  unsigned records = 0;
  const std::vector<unsigned char> raw = full_variables_page(records);
  unity_process session;
  for (auto _ : state) {
    const auto strategy = session.impl->get_strategy(raw);
    std::vector<unity_frame> frames;
    strategy->get_commands(frames);
    session.save_table_info(frames);
  }
  if (session.tables.size() != records) state.SkipWithError("records lost in decoding");
  state.counters["records"] = records;
  state.counters["page_bytes"] = static_cast<double>(raw.size());
  state.SetItemsProcessed(state.iterations() * records);
}
BENCHMARK(BM_decode_variables_page);

}  // namespace
