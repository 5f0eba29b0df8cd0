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
  // request's element count. Both filters call it; defined below, inline, so that the read
  // cycle's loop takes it in.
  virtual inline unsigned short offline_FillTagStruct(offline_CTagTable_578* table,
                                                      offline_stTag_578* tag, const tag_ref* ref);

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

namespace fill_tag {

// What a tag number beyond the table reads: a tag that resolved to nothing.
inline const tag_entry& empty_entry() {
  static char empty_name[1] = {'\0'};
  static const tag_entry entry{empty_name, 0, 0, 0, 0, 0, {}, 0, 0, 0, 0};
  return entry;
}

}  // namespace fill_tag

inline unsigned short tag_driver_offline_578::offline_FillTagStruct(offline_CTagTable_578* table,
                                                                    offline_stTag_578* tag,
                                                                    const tag_ref* ref) {
  tag->request_index = ref->tag_index;
  const tag_entry& entry =
      ref->tag_index < table->tag_count ? *table->Get(ref->tag_index) : fill_tag::empty_entry();
  tag->name = entry.name;
  tag->read_format = entry.read_format;
  tag->type_id = entry.type_id;
  tag->location = entry.location;
  tag->member_offset = entry.member_offset;
  tag->request_byte = ref->type_select != 0 ? ref->type_code_b : ref->type_code_a;
  const uint16_t array_index = ref->array_index;
  tag->request_word = array_index == 0xFFFF ? 0 : array_index;
  if (ref->bit_spec == 0) {
    tag->bit_number = -1;  // no bit
  } else if (ref->bit_spec == 255) {
    tag->bit_number = static_cast<int8_t>(static_cast<uint8_t>(tag->request_word));
  } else {
    tag->bit_number = static_cast<int8_t>(ref->bit_spec - 1);
  }
  // After the bit: a bit number taken from the index survives index_off.
  if (ref->index_off != 0) tag->request_word = 0;
  return ref->element_count;
}
