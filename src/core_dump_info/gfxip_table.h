// The chips that talvex knows: PCI device id to gfx IP version.
#pragma once

#include <cstdint>
#include <span>

struct hsa_gfxip_table {
  uint16_t device_id;
  uint8_t major;
  uint8_t minor;
  uint8_t stepping;
  const char* orven_name;
};

// All rows, in lookup order.
std::span<const hsa_gfxip_table> GfxIpTable();
