#include "core_dump_info/gfxip_table.h"

namespace {

// The device ids are the one thing here that a packager changes: each row's stands for the parts of
// that chip, and a packager puts the ids of the parts to be supported in their place. Rows 8 to 14
// carry the name of the rows above them although their version is 9.1.6, on purpose.
constexpr hsa_gfxip_table gfxip_lookup_table[] = {
    {0x5001, 9, 0, 6, "Osprey"}, {0x5002, 9, 0, 6, "Osprey"},  {0x5003, 9, 0, 6, "Osprey"},
    {0x5004, 9, 0, 6, "Osprey"}, {0x5005, 9, 0, 6, "Osprey"},  {0x5006, 9, 0, 6, "Osprey"},
    {0x5007, 9, 0, 6, "Osprey"}, {0x5008, 9, 1, 6, "Osprey"},  {0x5009, 9, 1, 6, "Osprey"},
    {0x500A, 9, 1, 6, "Osprey"}, {0x500B, 9, 1, 6, "Osprey"},  {0x500C, 9, 1, 6, "Osprey"},
    {0x500D, 9, 1, 6, "Osprey"}, {0x500E, 9, 1, 6, "Osprey"},  {0x500F, 9, 1, 6, "Heron"},
    {0x5010, 9, 1, 6, "Heron"},  {0x5011, 9, 2, 6, "Kestrel"}, {0x5012, 9, 2, 6, "Kestrel"},
    {0x5013, 9, 2, 8, "Plover"}, {0x5014, 9, 3, 6, "Wren"},    {0x5015, 9, 3, 8, "Finch"},
};
static_assert(std::size(gfxip_lookup_table) == 21);

}  // namespace

std::span<const hsa_gfxip_table> GfxIpTable() { return gfxip_lookup_table; }
