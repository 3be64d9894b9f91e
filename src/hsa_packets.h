// AQL packets as the HSA standard lays them out. Every packet is 64 bytes, little-endian, and
// begins with a 16-bit header:
//
//  15  13 12     11 10     9 8       7          0
// +------+---------+--------+-------+------------+
// |      | release | acquire|barrier|    type    |
// |      | scope   | scope  |       |            |
// +------+---------+--------+-------+------------+
#pragma once

#include <cstddef>
#include <cstdint>

struct hsa_signal_t {
  uint64_t handle;
};

struct hsa_kernel_dispatch_packet_t {
  uint16_t header;
  uint16_t setup;  // number of dimensions in bits 1..0
  uint16_t workgroup_size_x;
  uint16_t workgroup_size_y;
  uint16_t workgroup_size_z;
  uint16_t reserved0;
  uint32_t grid_size_x;
  uint32_t grid_size_y;
  uint32_t grid_size_z;
  uint32_t private_segment_size;  // bytes per work-item
  uint32_t group_segment_size;    // bytes per work-group
  uint64_t kernel_object;
  uint64_t kernarg_address;
  uint64_t reserved2;
  hsa_signal_t completion_signal;
};
static_assert(sizeof(hsa_kernel_dispatch_packet_t) == 64);
static_assert(offsetof(hsa_kernel_dispatch_packet_t, grid_size_x) == 12);
static_assert(offsetof(hsa_kernel_dispatch_packet_t, private_segment_size) == 24);
static_assert(offsetof(hsa_kernel_dispatch_packet_t, kernel_object) == 32);
static_assert(offsetof(hsa_kernel_dispatch_packet_t, reserved2) == 48);

struct hsa_barrier_and_packet_t {
  uint16_t header;
  uint16_t reserved0;
  uint32_t reserved1;
  hsa_signal_t dep_signal[5];
  uint64_t reserved2;
  hsa_signal_t completion_signal;
};
static_assert(sizeof(hsa_barrier_and_packet_t) == 64);
static_assert(offsetof(hsa_barrier_and_packet_t, dep_signal) == 8);
static_assert(offsetof(hsa_barrier_and_packet_t, reserved2) == 48);

using hsa_barrier_or_packet_t = hsa_barrier_and_packet_t;

struct hsa_agent_dispatch_packet_t {
  uint16_t header;
  uint16_t type;
  uint32_t reserved0;
  uint64_t return_address;
  uint64_t arg[4];
  uint64_t reserved2;
  hsa_signal_t completion_signal;
};
static_assert(sizeof(hsa_agent_dispatch_packet_t) == 64);
static_assert(offsetof(hsa_agent_dispatch_packet_t, arg) == 16);
static_assert(offsetof(hsa_agent_dispatch_packet_t, reserved2) == 48);
