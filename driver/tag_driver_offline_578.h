// The driver object: one per loaded library, shared by every device.
#pragma once

#include <cstdint>
#include <string>

#include "tag_index/tag_record.h"
#include "tag_index/tag_table.h"
#include "unitydrv/unitydrv.h"

struct device_context;

class tag_driver_offline_578 {
 public:
  tag_driver_offline_578() = default;
  // Not virtual: a virtual destructor would take places in the virtual table, whose five
  // operations keep their order. Empty: the one object lives until unload and owns nothing.
  ~tag_driver_offline_578() {}

  // Reads or writes for the device of requests[0]; its offline_mode picks the online or the
  // offline filter, here and in inputFilter only (filter_dispatch.cpp).
  virtual unitydrv_result outputfilter(_gui_request_* requests, int count);
  // Delivers the results of the last outputfilter for the device of infos[0].
  virtual void inputFilter(_input_data_* results, _frame_data_* frame, _system_info* infos,
                           int count);
  virtual int start_device(unsigned char offline_mode, void** handle, const char* path,
                           unsigned int offset);
  virtual void close_device(unsigned char number, void* handle);
  // Fills the working tag from the table entry and the request's tag_ref; returns the
  // request's element count.
  virtual unsigned short offline_FillTagStruct(offline_CTagTable_578* table, offline_stTag_578* tag,
                                               const tag_ref* ref);

  void set_offline_status(bool offline) { offline_status = offline ? 1 : 0; }
  bool get_offline_status() const { return offline_status != 0; }
  unitydrv_result off_line_outputfilter(_gui_request_* requests, int count);
  void off_line_inputFilter(_input_data_* results, _frame_data_* frame, _system_info* infos,
                            int count);

  uint8_t offline_status = 1;

 private:
  unitydrv_result on_line_outputfilter(device_context& device, _gui_request_* requests, int count);
  void on_line_inputFilter(device_context& device, _input_data_* results, _system_info* infos,
                           int count);
};

// Globals of the loaded library, built in this order at load time.
extern tag_driver_offline_578 driver_object;
extern std::string plc_address;
extern uint32_t comm_param;
