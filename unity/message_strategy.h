// Classification of received replies and their splitting into unity_frame records.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <vector>

#include "dictionary/dictionary_records.h"
#include "unity/modbus_tcp_frame.h"

class IUnity_message_strategy {
 public:
  virtual ~IUnity_message_strategy() = default;
  virtual void get_commands(std::vector<unity_frame>& out) = 0;
  virtual void on_set_comm_successed(modbus_tcp_frame& frame) = 0;
  // get_commands for a caller that decodes each frame's raw message itself and never reads
  // the parsed records: the frames may come without their record nodes. Declared after
  // the interface's own operations so that their virtual slots stay where they are.
  virtual void get_commands_without_records(std::vector<unity_frame>& out) { get_commands(out); }
};

// A frame shaped like a Unity request: never served, its get_commands throws.
class request_strategy : public IUnity_message_strategy {
 public:
  request_strategy(const std::vector<modbus_tcp_frame>& frames, std::vector<unsigned char>& raw);
  void get_commands(std::vector<unity_frame>& out) override;
  void on_set_comm_successed(modbus_tcp_frame& frame) override;

 private:
  const std::vector<modbus_tcp_frame>& frames_;
  std::vector<unsigned char> raw_;  // a copy: the caller's buffer may not outlive the strategy
};

// Every reply of the controller takes this path.
class response_strategy : public IUnity_message_strategy {
 public:
  response_strategy(const std::vector<modbus_tcp_frame>& frames,
                    const std::vector<unsigned char>& raw);
  void get_commands(std::vector<unity_frame>& out) override;
  void get_commands_without_records(std::vector<unity_frame>& out) override;
  void on_set_comm_successed(modbus_tcp_frame& frame) override;

  uint32_t last_address = 0;

 private:
  void split(std::vector<unity_frame>& out, bool with_records);

  const std::vector<modbus_tcp_frame>& frames_;
  std::vector<unsigned char> raw_;
};

class CommStrategyFactory {
 public:
  static boost::shared_ptr<IUnity_message_strategy> get_request_strategy(
      const std::vector<modbus_tcp_frame>& frames, std::vector<unsigned char>& raw);
  static boost::shared_ptr<IUnity_message_strategy> get_response_strategy(
      const std::vector<modbus_tcp_frame>& frames, const std::vector<unsigned char>& raw);
};

// Reads one dictionary record at cursor (8 bytes, or named when with_name).
node get_next_node_data(const std::vector<unsigned char>& data, unsigned short& cursor,
                        bool with_name);
