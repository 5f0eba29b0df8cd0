// In-process simulator of an M340/M580 controller answering Unity messages
// (Modbus function 0x5A) over Modbus TCP, driven by a JSON project file.
//
// It shares no code with the driver on purpose: it has its own encoder and
// decoder, so that a misunderstanding of the wire format cannot hide on both
// sides of a test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace plcsim {

// Scripted misbehaviour. Request numbers are 1-based and count every request
// the server received since start, over all connections; 0 switches a fault off.
struct faults {
  int no_reply_to = 0;  // this request gets no reply at all
  int delay_reply_to = 0;
  int delay_ms = 0;  // this request's reply is sent after delay_ms
  int split_reply_to = 0;
  int split_pause_ms = 50;  // this reply goes out in two send()s with a pause
  int error_function = -1;  // every request with this Unity function code gets status 0xFD
  int close_after = 0;      // after answering this many requests, close the connection
  int truncate_reply_to = 0;
  std::size_t truncate_to = 0;  // this reply is cut to truncate_to bytes
};

// A structure member: its type id, its byte offset inside the structure.
struct member {
  std::string name;
  uint16_t type = 0;
  uint32_t offset = 0;
};

// A derived type of the data dictionary. kind is "struct", "array" or "string".
struct derived_type {
  uint16_t id = 0;
  std::string name;
  std::string kind;
  std::vector<member> members;                          // struct
  uint16_t element_type = 0;                            // array
  std::vector<std::pair<int32_t, int32_t>> dimensions;  // array: [low, high] per dimension
};

// A published variable: name, type id, memory block and byte offset.
struct variable {
  std::string name;
  uint16_t type = 0;
  uint16_t block = 0;
  uint32_t offset = 0;
};

// Parsed project: controller type text, dictionary and initial memory.
struct project {
  std::string plc_type = "BMX P34 2020";
  std::map<uint16_t, derived_type> types;  // derived types by id
  std::vector<variable> variables;
  // Initial memory contents: block -> (offset -> bytes).
  std::map<uint16_t, std::map<uint32_t, std::vector<uint8_t>>> initial;
  uint64_t dictionary_handle = 0x0123456789ABCDEFull;
  uint32_t table_address = 0x12345678u;  // even: an M580 reports table_address/2
  bool is_m580() const { return plc_type.find("BME P58") != std::string::npos; }
};

project load_project_file(const std::string& path);   // throws std::runtime_error
project parse_project(const std::string& json_text);  // throws std::runtime_error
std::string project_to_json(const project& p);
// Large projects for benchmarks and paging tests.
project generate_project(std::size_t variables, std::size_t struct_types, bool m580);

// The controller's elementary type ids, as its dictionary names them.
namespace elementary {
enum : uint16_t {
  bool_ = 1,
  int_ = 4,
  uint = 5,
  dint = 6,
  udint = 7,
  real = 8,
  string = 9,
  time = 10,
  date = 14,
  tod = 15,
  bits64 = 16,  // LINT, ULINT, LWORD and LREAL alike
  byte = 21,
  word = 22,
  dword = 23,
  ebool = 25,
};
}  // namespace elementary

// Width in bytes of an elementary type id (0 when the id is not elementary).
std::size_t elementary_width(uint16_t type_id);

class server {
 public:
  explicit server(project p);
  ~server();  // stops
  server(const server&) = delete;
  server& operator=(const server&) = delete;

  bool start(const std::string& address, uint16_t port);  // bind + serve on a background thread
  // Before start(): record every request and reply into a pcap file; false if it cannot be created.
  bool record_to(const std::string& pcap_path);
  bool start_on_free_loopback(
      uint16_t port = 502);  // first free 127.0.0.x, x from a random start in 2..250
  void stop();               // joins; closes every connection
  std::string address() const;
  uint16_t port() const;
  void set_faults(const faults& f);      // thread-safe
  uint64_t request_count() const;        // requests received so far
  std::size_t connection_count() const;  // connections accepted so far
  std::vector<uint8_t> read_memory(uint16_t block, uint32_t offset, std::size_t n) const;
  void write_memory(uint16_t block, uint32_t offset, const std::vector<uint8_t>& bytes);
  // Location of a variable of the project: block and byte offset; false if unknown.
  bool variable_location(const std::string& name, uint16_t& block, uint32_t& offset) const;

  // A program download: the project is replaced, memory is laid out afresh from its initial
  // values and every open connection is closed, as a controller does when its program changes.
  // Thread-safe; later requests see only the new project.
  void load_program(project p);

  // A restart: every open connection is closed, memory and program stay.
  void restart();
  // Sees every write to memory, the program's own layout after a download included (see
  // sim_memory::observer); set before serving.
  void observe_memory(
      std::function<
          void(uint16_t block, uint32_t offset, std::size_t n,
               const std::function<std::vector<uint8_t>(uint16_t, uint32_t, std::size_t)>& read)>
          o);

  const project& loaded_project() const;  // not to be held across load_program()
  uint32_t table_address() const;
  uint64_t dictionary_handle() const;

 private:
  struct impl;
  std::unique_ptr<impl> impl_;
};

}  // namespace plcsim
