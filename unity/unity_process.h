// A device's Unity client session with one controller: the connection, the request
// numbering, the downloaded data dictionary and the decoding of replies.
#pragma once

#include <array>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "dictionary/dictionary_records.h"
#include "net/client_socket.h"
#include "unity/message_strategy.h"
#include "unity/modbus_tcp_frame.h"
#include "unity/receive_buffer.h"

class unity_process {
 public:
  // Session states.
  enum : int {
    state_not_connected = 0,
    state_connecting = 1,
    state_identified = 2,
    state_ready = 5,
    state_write_ok = 6,
    state_read_ok = 7,
    state_write_no_reply = 8,
    state_failed = 9,
  };

  using data_type_entry = std::pair<const unsigned short, data_type>;

  struct PRIVATE {
    std::vector<modbus_tcp_frame> frames;  // the last decoded reply (zero or one frame)
    modbus_tcp_frame spare{};

    void create_modbus_tcp_frame_to_source(std::vector<unsigned char> raw);
    bool is_request(std::vector<unsigned char> raw);
    boost::shared_ptr<IUnity_message_strategy> get_strategy(std::vector<unsigned char> raw);
  };

  unity_process();
  ~unity_process();
  unity_process(const unity_process&) = delete;
  unity_process& operator=(const unity_process&) = delete;

  // Connection.
  int setup_device(const char* address, unsigned short port, int timeout);
  void stop();
  std::vector<unsigned char> client_recv();

  // Identification.
  bool initial_device();
  modbus_tcp_frame create_init_request(unsigned short step, unsigned char code, bool& more);
  modbus_tcp_frame get_file_handle_request(unsigned short step, unsigned char code, bool& more);
  bool get_file_handle_pos();
  bool is_bme_p58() const;  // plc_type contains "BME P58"

  // Dictionary download.
  void get_data_type_list();
  void get_data_type_detail();
  bool browse();
  modbus_tcp_frame create_get_data_type_request(unsigned short step, unsigned char code, bool& more,
                                                const std::vector<unsigned char>& continuation);
  modbus_tcp_frame create_get_data_type_detail_request(unsigned short step, unsigned char code,
                                                       bool& more,
                                                       const std::vector<unsigned char>& type_id);
  modbus_tcp_frame create_browse_request(unsigned short step, unsigned char code, bool& more);

  // Dictionary decoders.
  void save_plc_type(std::vector<unity_frame> frames);
  void save_array_type_pos(std::vector<unity_frame> frames);
  void save_table_info(std::vector<unity_frame> frames);
  void save_data_type_info(std::vector<unity_frame> frames);
  int save_struct_detail(std::vector<unity_frame> frames, data_type_entry& entry,
                         std::vector<data_type>& members);
  void save_array_detail(std::vector<unity_frame> frames, data_type_entry& entry);

  // Variable access. The read builder marks single_element on the caller's items, which
  // the result slots' fill reads back, so the item list is taken by reference.
  int read(std::vector<read_comm>& items, std::vector<unsigned char>& values);
  // read in two halves, so that the caller can do its own work while the reply is on its
  // way: send_read builds and sends the request (false when it sent nothing; the session
  // then stands as read leaves it), receive_read waits for the reply and takes its values.
  // Call receive_read only after a send_read that returned true.
  bool send_read(std::vector<read_comm>& items);
  // The same for the first count items only.
  bool send_read(std::vector<read_comm>& items, std::size_t count);
  int receive_read(std::vector<unsigned char>& values);
  int write(std::vector<read_comm> items);
  modbus_tcp_frame create_read_request(unsigned short transaction, unsigned char mode,
                                       bool& expect_reply, std::vector<read_comm>& items,
                                       bool& normalise);
  modbus_tcp_frame create_write_request(unsigned short transaction, unsigned char mode,
                                        bool& expect_reply, std::vector<read_comm> items);
  bool is_string_size_odd(unsigned short type_id);

  boost::shared_ptr<PRIVATE> impl;
  orm::ClientSocket socket;
  uint16_t transaction_counter = 1;
  std::string plc_type;
  std::vector<unsigned char> dictionary_handle;
  std::map<unsigned short, data_type> data_types;
  std::map<unsigned short, std::vector<data_type>> struct_members;
  std::map<std::string, table> tables;
  uint32_t table_address = 0;
  std::array<unsigned char, 6> variable_address{};  // u32 then u16, little-endian
  std::vector<unsigned char> browse_address;
  int state = state_not_connected;

 private:
  // Sends an encoded frame on the session's descriptor; -1 on failure.
  long send_frame(const modbus_tcp_frame& frame);
  long send_bytes(const unsigned char* bytes, std::size_t size);
  // client_recv into reply_buffer_, which is left holding exactly the bytes received.
  void receive_reply();
  // Guarded mode's receive (see unity_guarded.cpp): the reply that carries transaction id
  // alone, gathered from its pieces within the one-second wait, into reply_buffer_; earlier
  // requests' replies are passed over. Empty when it did not come.
  void receive_matching(uint16_t id);
  // Guarded: the one whole frame of id at the front of the held bytes (its size), after
  // dropping any earlier request's; 0 while none is complete.
  std::size_t take_matching(uint16_t id, std::size_t& held);
  // Guarded: discards whatever waits in the socket before a request goes out.
  void drain_stale();
  // The reply for the current request: the guarded or the plain receive.
  void receive_for_request();
  // Guarded: receive_matching for the current request, as a copy.
  std::vector<unsigned char> matching_reply();

  // Kept from one exchange to the next so that a warm read cycle allocates nothing: the
  // encoded read request (its used length is returned by the builder) and the reply.
  std::vector<unsigned char> request_buffer_;
  receive_buffer reply_buffer_;
};
