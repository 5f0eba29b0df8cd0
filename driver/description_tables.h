// The constant records that describe the driver to the host.
#pragma once

#include <cstdint>

#include "unitydrv/unitydrv.h"

namespace description {

constexpr int address_type_count = 17;

void fill_attributes(unitydrv_attributes* attributes);
void copy_address_types(unitydrv_address_type* table);
void fill_size_limit(unitydrv_size_limit* limit);
// Host data type of a PLC type code; false for codes the host has no type for.
bool host_type_of(uint8_t plc_code, uint32_t& host_type);

}  // namespace description
