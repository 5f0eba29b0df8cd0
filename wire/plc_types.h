// The PLC type codes by which the host names element types: one row per code, from which
// every size and mapping of the driver and the host tool is derived.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "unitydrv/unitydrv.h"

namespace wire {

struct plc_type {
  uint8_t code;
  const char* name;          // as the host's address-type table shows it
  uint8_t size;              // bytes per element on the wire
  uint8_t bit_source_width;  // bytes of the value a bit is picked from; 0: none
  uint8_t host_type;         // the host's data type for the code
  uint8_t units;             // 16-bit units one element takes in a result
  bool one_bit;              // BOOL and BitArray: one bit value per element
};

// In the order of the host's address-type table.
inline constexpr plc_type plc_types[] = {
    {UNITYDRV_TYPE_BOOL, "BOOL", 1, 0, 1, 1, true},
    {UNITYDRV_TYPE_BITARRAY, "BitArray", 1, 0, 1, 1, true},
    {UNITYDRV_TYPE_SINT, "SINT", 1, 1, 7, 1, false},
    {UNITYDRV_TYPE_INT, "INT", 2, 2, 9, 1, false},
    {UNITYDRV_TYPE_DINT, "DINT", 4, 4, 10, 2, false},
    {UNITYDRV_TYPE_REAL, "REAL", 4, 4, 5, 2, false},
    {UNITYDRV_TYPE_BYTE, "BYTE", 1, 1, 2, 1, false},
    {UNITYDRV_TYPE_UDINT, "UDINT", 4, 4, 6, 2, false},
    {UNITYDRV_TYPE_WORD, "WORD", 2, 2, 3, 1, false},
    {UNITYDRV_TYPE_DWORD, "DWORD", 4, 4, 4, 2, false},
    {UNITYDRV_TYPE_UINT, "UINT", 2, 2, 11, 1, false},
    {UNITYDRV_TYPE_USINT, "USINT", 1, 1, 12, 1, false},
    {UNITYDRV_TYPE_STRING, "STRING", 1, 1, 7, 1, false},
    {UNITYDRV_TYPE_LWORD, "LWORD", 8, 0, 16, 4, false},
    {UNITYDRV_TYPE_LINT, "LINT", 8, 0, 13, 4, false},
    {UNITYDRV_TYPE_ULINT, "ULINT", 8, 0, 14, 4, false},
    {UNITYDRV_TYPE_LREAL, "LREAL", 8, 0, 15, 4, false},
};
inline constexpr std::size_t plc_type_count = sizeof(plc_types) / sizeof(plc_types[0]);

namespace detail {

// Every code the driver does not know reads as this all-zero row.
inline constexpr plc_type unknown_plc_type{0, "", 0, 0, 0, 0, false};

constexpr std::array<const plc_type*, 256> rows_by_code() {
  std::array<const plc_type*, 256> rows{};
  for (const plc_type*& row : rows) row = &unknown_plc_type;
  for (const plc_type& row : plc_types) rows[row.code] = &row;
  return rows;
}

// Indexed by code: the look-ups below run for every element of every request.
inline constexpr std::array<const plc_type*, 256> plc_type_rows = rows_by_code();

}  // namespace detail

// nullptr for a code the driver does not know.
constexpr const plc_type* find_plc_type(uint8_t code) {
  const plc_type* row = detail::plc_type_rows[code];
  return row == &detail::unknown_plc_type ? nullptr : row;
}

// Bytes per element; 0 for codes the driver does not know.
constexpr unsigned element_size(uint8_t code) {
  return detail::plc_type_rows[code]->size;
}

// Bytes of the value that bit-addressed elements are picked from; 0 for types with none.
constexpr unsigned bit_source_width(uint8_t code) {
  return detail::plc_type_rows[code]->bit_source_width;
}

// 16-bit units one element takes in a result slot and a host result; 0 for unknown codes.
constexpr unsigned result_units(uint8_t code) {
  return detail::plc_type_rows[code]->units;
}

}  // namespace wire
