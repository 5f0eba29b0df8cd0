#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/unity_reply.h"
#include "tools/plcsim/plcsim.h"
#include "tools/plcsim/unity_replies.h"

namespace {

using bytes = std::vector<uint8_t>;
using harness::hex;

plcsim::project plant() {
  return plcsim::load_project_file(std::string(UNITYDRV_SOURCE_DIR) + "/examples/plant.json");
}

// A client socket connected to the simulator, or -1.
int connected_to(const plcsim::server& srv) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(srv.port());
  ::inet_pton(AF_INET, srv.address().c_str(), &sa.sin_addr);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0) return fd;
  ::close(fd);
  return -1;
}

struct location_case {
  const char* path;
  uint16_t block;
  uint32_t offset;
  const char* bytes_there;
};

TEST(project, PlantValuesSitAtTheirLocations) {
  plcsim::server srv(plant());
  const location_case cases[] = {
      {"Motor1.Speed", 1, 0, "00 50 B5 44"},  // 1450.5f
      {"Motor1.Starts", 1, 12, "11 00 00 00"},  {"Motor2.Starts", 1, 28, "03 00 00 00"},
      {"Line[2].Speed", 1, 64, "00 00 96 43"},  // 300.0f
      {"Line[3].Starts", 1, 92, "04 00 00 00"}, {"Counter", 1, 96, "D6 FF"},
      {"Production", 1, 104, "00 5E D0 B2"},    {"Alarms", 1, 108, "18 00"},
      {"Status", 1, 112, "01 00 00 80"},        {"Lamps[3]", 1, 119, "01"},
      {"Levels[9]", 1, 158, "64 00"},           {"Name", 1, 160, "50 4C 41 4E 54 2D 41 00"},
      {"Setpoint", 2, 0, "00 00 96 42"},
  };
  for (const auto& k : cases) {
    uint16_t block = 0;
    uint32_t offset = 0;
    ASSERT_TRUE(srv.variable_location(k.path, block, offset)) << k.path;
    EXPECT_EQ(block, k.block) << k.path;
    EXPECT_EQ(offset, k.offset) << k.path;
    bytes want = hex(k.bytes_there);
    EXPECT_EQ(srv.read_memory(block, offset, want.size()), want) << k.path;
  }
}

TEST(project, UnknownPathsAreNotLocated) {
  plcsim::server srv(plant());
  uint16_t block = 0;
  uint32_t offset = 0;
  for (const char* path : {"Nothing", "Motor1.Torque", "Line[4].Speed", "Counter.x", "Line[1"})
    EXPECT_FALSE(srv.variable_location(path, block, offset)) << path;
}

struct bad_project {
  const char* json;
  const char* message_part;
};

TEST(project, BadProjectsAreRejectedWithAReason) {
  const bad_project cases[] = {
      {"{", "JSON"},
      {R"({"variables":[{"name":"X","type":77,"block":1,"offset":0}]})", "unknown type"},
      {R"({"types":[{"id":100,"kind":"array","name":"A","element":101,"dimensions":[[0,1]]},
                    {"id":101,"kind":"struct","name":"S","members":[{"name":"m","type":4,"offset":0}]}]})",
       "higher id"},
      {R"({"table_address":3})", "even"},
      {R"({"types":[{"id":100,"kind":"union","name":"U"}]})", "kind"},
      {R"({"types":[{"id":4,"kind":"string","name":"STRING[8]"}]})", "elementary"},
      {R"({"variables":[{"name":"X","type":4,"block":1}]})", "offset"},
      // Faults that were accepted silently: each names the variable or type at fault.
      {R"({"variables":[{"name":"X","type":4,"block":1,"offset":0},
                        {"name":"X","type":4,"block":1,"offset":8}]})",
       "duplicate variable X"},
      {R"({"types":[{"id":100,"kind":"struct","name":"S","members":[{"name":"m","type":4,"offset":0},
                    {"name":"m","type":4,"offset":2}]}]})",
       "S: duplicate member m"},
      {R"({"variables":[{"name":"A","type":6,"block":1,"offset":0},
                        {"name":"B","type":4,"block":1,"offset":2}]})",
       "B (block 1, offset 2) overlaps variable A"},
      {R"({"variables":[{"name":"C","type":4,"block":1,"offset":0,"value":70000}]})",
       "variable C: value 70000 does not fit INT (-32768..32767)"},
      {R"({"variables":[{"name":"C","type":5,"block":1,"offset":0,"value":-1}]})",
       "variable C: value -1 does not fit UINT"},
      {R"({"types":[{"id":100,"kind":"struct","name":"S","members":[{"name":"m","type":4,"offset":0}]}],
          "variables":[{"name":"V","type":100,"block":1,"offset":0,"value":{"n":1}}]})",
       "variable V: unknown member 'n' of structure S"},
      {R"({"types":[{"id":100,"kind":"array","name":"M","element":4,"dimensions":[[0,1],[0,1]]}]})",
       "array M: only one dimension is supported"},
  };
  for (const auto& k : cases) {
    try {
      plcsim::parse_project(k.json);
      ADD_FAILURE() << "accepted: " << k.json;
    } catch (const std::runtime_error& e) {
      EXPECT_NE(std::strstr(e.what(), k.message_part), nullptr) << e.what();
    }
  }
}

// A project with comments, as the README shows one, was refused as invalid JSON.
TEST(project, CommentsAreAllowed) {
  const plcsim::project p = plcsim::parse_project(R"({
    "plc_type": "BMX P34 2020",  // a comment
    /* a block comment */
    "variables": [{"name": "C", "type": 4, "block": 1, "offset": 0, "value": -5}]
  })");
  ASSERT_EQ(p.variables.size(), 1u);
  EXPECT_EQ(p.initial.at(1).at(0), (std::vector<uint8_t>{0xFB, 0xFF}));
}

TEST(project, MissingFileNamesThePath) {
  try {
    plcsim::load_project_file("/nonexistent/p.json");
    ADD_FAILURE() << "loaded a missing file";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::strstr(e.what(), "/nonexistent/p.json"), nullptr);
  }
}

TEST(project, GeneratedProjectSurvivesJsonRoundTrip) {
  plcsim::project p = plcsim::generate_project(200, 5, true);
  EXPECT_TRUE(p.is_m580());
  plcsim::project q = plcsim::parse_project(plcsim::project_to_json(p));
  EXPECT_EQ(q.plc_type, p.plc_type);
  EXPECT_EQ(q.types.size(), p.types.size());
  ASSERT_EQ(q.variables.size(), p.variables.size());
  EXPECT_EQ(q.variables.back().offset, p.variables.back().offset);
  EXPECT_EQ(q.initial, p.initial);
  EXPECT_EQ(q.dictionary_handle, p.dictionary_handle);
}

// Variable access items parsed as a controller reads them: read items in the forms the
// client builds from read format and count, write items each by its own code, and the
// whole message or nothing. Items address block 1 from byte 0x10, which holds 10 11 12 ...
struct access_case {
  const char* what;
  const char* items;   // after 00 <function> <table address> <item count>
  const char* reply;   // the reply's Unity message
  const char* memory;  // block 1 from 0x10 afterwards
};

TEST(UnityAccess, ItemsAreReadByTheirCodes) {
  const char* untouched = "1011121314151617 18191A1B1C1D1E1F";
  const access_case cases[] = {
      {"read 0x21, one element", "22 01 21 0100 01 0000 01 12", "00FE 12", untouched},
      // One layout per code: 0x21 is one element behind its 0x01 byte, a length code has
      // its count. The client's 0x21 run and its type-9 item coded 17 without a count
      // (any read format but 255 or 0x21) are refused as malformed.
      {"read 0x21 with a count", "22 01 21 0100 01 0000 12 0200", "00FD 06", untouched},
      {"read length code, count 3", "22 01 11 0100 01 0000 11 0300", "00FE 111213", untouched},
      {"read code 17 without its count", "22 01 11 0100 01 0000 14", "00FD 02", untouched},
      {"read code 17 without its count, then INT", "22 02 11 0100 01 0000 14 02 0100 01 0000 10",
       "00FD 06", untouched},
      {"read code 17 with the 0x01 byte", "22 01 11 0100 01 0000 01 14", "00FD 02", untouched},
      {"read INT, marker byte wrong", "22 01 02 0100 02 0000 10", "00FD 06", untouched},
      {"read unknown code", "22 01 05 0100 01 0000 10", "00FD 06", untouched},
      {"read byte left over", "22 01 02 0100 01 0000 10 00", "00FD 06", untouched},
      {"write BYTE with the client's two bytes", "23 01 01 0100 10000000 AA00", "00FD 06",
       untouched},
      {"write LINT run", "23 01 14 0100 10000000 0200 0102030405060708 A1A2A3A4A5A6A7A8", "00FE 01",
       "0102030405060708 A1A2A3A4A5A6A7A8"},
      {"write LINT run, half its bytes", "23 01 14 0100 10000000 0200 0102030405060708", "00FD 02",
       untouched},
      {"write two LREAL items",
       "23 02 04 0100 10000000 0102030405060708 04 0100 18000000 A1A2A3A4A5A6A7A8", "00FE 01",
       "0102030405060708 A1A2A3A4A5A6A7A8"},
      {"write INT, then an INT run", "23 02 02 0100 10000000 AABB 12 0100 12000000 0200 CCDDEEFF",
       "00FE 01", "AABBCCDDEEFF1617 18191A1B1C1D1E1F"},
  };
  const plcsim::project p = plant();
  ASSERT_EQ(p.table_address, 0x12345678u);
  for (const access_case& c : cases) {
    SCOPED_TRACE(c.what);
    plcsim::sim_memory mem;
    mem.write(1, 0x10, hex(untouched));
    const std::string items = c.items;  // the table address follows the function code
    const bytes request = hex("00" + items.substr(0, 2) + "78563412" + items.substr(2));
    EXPECT_EQ(plcsim::answer_unity(p, mem, request), hex(c.reply));
    EXPECT_EQ(mem.read(1, 0x10, 16), hex(c.memory));
  }
}

// Requests a controller refuses for their shape, each with its error reply: dictionary reads
// with other selector bytes or another length, a file-handle request with another body.
TEST(UnityAccess, MalformedDictionaryAndFileHandleRequestsAreRefused) {
  const struct {
    const char* what;
    const char* request;
    const char* reply;  // how the reply starts
  } cases[] = {
      {"type list", "00 26 03 FB03 EFCDAB89 00000000", "00FE 00000000 0600"},
      {"type list, selector FC 03", "00 26 03 FC03 EFCDAB89 00000000", "00FD 02"},
      {"type list, one byte more", "00 26 03 FB03 EFCDAB89 00000000 00", "00FD 02"},
      {"variables table", "00 26 02 FB03 EFCDAB89 FFFF 00000000", "00FE 09 00000000 1100"},
      {"variables table, selector FB 04", "00 26 02 FB04 EFCDAB89 FFFF 00000000", "00FD 02"},
      {"variables table, one byte short", "00 26 02 FB03 EFCDAB89 FFFF 000000", "00FD 02"},
      {"type detail, one byte more", "00 26 02 FB03 EFCDAB89 6400 00000000 00", "00FD 02"},
      {"file handle", "00 22 7E8B4B05 01 01 0100 01 0000 00", "00FE 000000000000 78563412"},
      {"file handle, two items", "00 22 7E8B4B05 02 01 0100 01 0000 00", "00FD 06"},
      {"file handle, code 2", "00 22 7E8B4B05 01 02 0100 01 0000 00", "00FD 06"},
      {"file handle, no marker", "00 22 7E8B4B05 01 01 0100 00 0000 00", "00FD 06"},
      {"file handle, one byte more", "00 22 7E8B4B05 01 01 0100 01 0000 00 00", "00FD 06"},
  };
  const plcsim::project p = plant();
  plcsim::sim_memory mem;
  for (const auto& c : cases) {
    const bytes reply = plcsim::answer_unity(p, mem, hex(c.request));
    const bytes start = hex(c.reply);
    ASSERT_GE(reply.size(), start.size()) << c.what;
    EXPECT_EQ(bytes(reply.begin(), reply.begin() + static_cast<long>(start.size())), start)
        << c.what;
  }
}

// The Modbus TCP header: a protocol id other than 0 is not Modbus (dropped unanswered); a
// unit id other than 0 or 0xFF gets exception 0x0A (gateway path unavailable).
TEST(UnityAccess, HeaderOfAnotherProtocolOrUnitIsRefused) {
  EXPECT_FALSE(plcsim::refused_header(hex("0001 0000 0004 00 5A 0002")).has_value());
  EXPECT_FALSE(plcsim::refused_header(hex("0001 0000 0004 FF 5A 0002")).has_value());
  EXPECT_EQ(plcsim::refused_header(hex("0001 0001 0004 00 5A 0002")), bytes{});
  EXPECT_EQ(plcsim::refused_header(hex("0001 0000 0004 05 5A 0002")), hex("DA 0A"));
}

// Over the wire: the frame of another protocol gets no reply and the connection stays; the
// frame for another unit gets the exception; the frame after them is answered.
TEST(UnityAccess, RefusedHeadersOverTheConnection) {
  plcsim::server srv(plant());
  ASSERT_TRUE(srv.start_on_free_loopback(0));
  const int fd = connected_to(srv);
  ASSERT_GE(fd, 0);
  const bytes frames =
      hex("0001 0001 0004 00 5A 0001  0002 0000 0004 07 5A 0001  0003 0000 0004 00 5A 0001");
  ASSERT_EQ(::send(fd, frames.data(), frames.size(), 0), static_cast<ssize_t>(frames.size()));
  bytes got;
  const bytes want =
      hex("0002 0000 0003 07 DA 0A  0003 0000 0011 00 5A 00FE FD000104000032000000000000");
  for (pollfd p{fd, POLLIN, 0}; got.size() < want.size() && ::poll(&p, 1, 2000) == 1;) {
    uint8_t chunk[256];
    const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) break;
    got.insert(got.end(), chunk, chunk + n);
  }
  ::close(fd);
  EXPECT_EQ(got, want);
}

// A string of odd declared length read whole comes with a zero byte more; read in part, or
// an even one, without.
TEST(UnityAccess, AnOddStringReadWholeIsPaddedToWholeWords) {
  const plcsim::project p = plcsim::parse_project(R"({"types": [
      {"id": 102, "kind": "string", "name": "STRING[5]"},
      {"id": 103, "kind": "string", "name": "STRING[4]"}], "variables": [
      {"name": "Code", "type": 102, "block": 1, "offset": 0, "value": "ABCDE"},
      {"name": "Even", "type": 103, "block": 1, "offset": 6, "value": "WXYZ"},
      {"name": "After", "type": 4, "block": 1, "offset": 10, "value": 4660}]})");
  plcsim::sim_memory mem;
  for (const auto& [block, runs] : p.initial)
    for (const auto& [offset, values] : runs) mem.write(block, offset, values);
  const struct {
    const char* items;
    const char* reply;
  } cases[] = {
      {"02 11 0100 01 0000 00 0500 02 0100 01 0000 0A", "00FE 4142434445 00 3412"},
      {"01 11 0100 01 0000 00 0300", "00FE 414243"},
      {"01 11 0100 01 0000 06 0400", "00FE 5758595A"},
  };
  for (const auto& c : cases) {
    const bytes request = hex(std::string("00 22 78563412 ") + c.items);
    EXPECT_EQ(plcsim::answer_unity(p, mem, request), hex(c.reply)) << c.items;
  }
}

}  // namespace

// A program download replaces the dictionary and the memory and drops open connections.
TEST(project, ProgramDownloadReplacesProjectAndClosesConnections) {
  plcsim::server srv(plant());
  ASSERT_TRUE(srv.start_on_free_loopback(0));
  const int fd = connected_to(srv);
  ASSERT_GE(fd, 0);
  for (int i = 0; i < 200 && srv.connection_count() == 0; ++i) ::usleep(10000);
  ASSERT_EQ(srv.connection_count(), 1u);

  plcsim::project next = plcsim::parse_project(
      R"({"types": [], "variables": [{"name": "Level", "type": 4, "block": 3, "offset": 8,
          "value": 7}]})");
  srv.load_program(next);
  uint16_t block = 0;
  uint32_t offset = 0;
  EXPECT_FALSE(srv.variable_location("Counter", block, offset));
  ASSERT_TRUE(srv.variable_location("Level", block, offset));
  EXPECT_EQ(block, 3);
  EXPECT_EQ(offset, 8u);
  EXPECT_EQ(srv.read_memory(3, 8, 2), hex("07 00"));
  EXPECT_EQ(srv.read_memory(1, 96, 2), hex("00 00"));  // the old Counter's bytes are gone

  pollfd pfd{fd, POLLIN, 0};
  ASSERT_EQ(::poll(&pfd, 1, 2000), 1);  // the server closes its end
  char c = 0;
  EXPECT_EQ(::recv(fd, &c, 1, 0), 0);
  ::close(fd);
}
