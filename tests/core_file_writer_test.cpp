// The core file writer, read back by offsets written out by hand.
#include "core_file_writer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "raw_bytes.h"
#include "temp_dir.h"

namespace sample {
namespace {

std::string Zeros(size_t count) { return std::string(count, '\0'); }

// Two agents (the second with a wave), two queues, two code objects with two kernels and one.
CoreFile TwoOfEverything() {
  CoreFile file;
  file.agents.resize(2);
  file.agents[0].name = "first";
  file.agents[1].name = "second";
  file.agents[1].waves.resize(1);
  file.queues.resize(2);
  file.queues[0].queue_id = 3;
  file.queues[0].ring = std::string(64, 'r');
  file.queues[0].header_backup = {0x1502};
  file.queues[0].context = std::string(24, 'c');
  file.queues[1].queue_id = 4;
  file.queues[1].ring = std::string(128, 's');
  file.queues[1].context = std::string(32, 'd');
  file.code_objects.resize(2);
  file.code_objects[0].elf = "elf one";
  file.code_objects[0].kernels = {{0x1000, "k0"}, {0x2000, "k1"}};
  file.code_objects[1].elf = "elf number two";
  file.code_objects[1].kernels = {{0x3000, "k2"}};
  file.environment = "HOME=/root\n";
  return file;
}

// ---------------------------------------------------------------------------------------------
// Headers

TEST(CoreFileWriterHeader, EmptyVersionOneFile) {
  const std::string bytes = CoreFileBytes(CoreFile{});
  EXPECT_EQ(bytes.substr(0, 4), "OXCD");
  EXPECT_EQ(U32At(bytes, 4), 1u);
  EXPECT_EQ(U32At(bytes, 8), 1u);
  EXPECT_EQ(U32At(bytes, 12), 0u);
  EXPECT_EQ(U64At(bytes, 16), 128u);  // the reason lies behind the header
  EXPECT_EQ(U64At(bytes, 24), 112u);
  EXPECT_EQ(bytes.substr(32, 48), Zeros(48));  // no agent, queue or code object
  EXPECT_EQ(U64At(bytes, 80), 240u);           // the environment lies behind the reason
  EXPECT_EQ(U64At(bytes, 88), 1u);
  EXPECT_EQ(bytes.substr(96), Zeros(32 + 112 + 1));
}

TEST(CoreFileWriterHeader, EmptyVersionZeroFile) {
  CoreFile file;
  file.format = 0;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 0), 0x20220519u);
  EXPECT_EQ(U64At(bytes, 8), 88u);
  EXPECT_EQ(U64At(bytes, 16), 112u);
  EXPECT_EQ(bytes.substr(24, 48), Zeros(48));
  EXPECT_EQ(U64At(bytes, 72), 200u);
  EXPECT_EQ(U64At(bytes, 80), 1u);
  EXPECT_EQ(bytes.size(), 201u);
}

TEST(CoreFileWriterHeader, VersionNumbersAreTakenAsGiven) {
  CoreFile file;
  file.version = {7, 8, 9};
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U32At(bytes, 4), 7u);
  EXPECT_EQ(U32At(bytes, 8), 8u);
  EXPECT_EQ(U32At(bytes, 12), 9u);
}

// Regions of the default order, each at the next multiple of 8:
// reason 128..240, agents 240..2464, queues 2464..2752, code objects 2752..2880,
// kernels 2880..5976, environment 5976..5988, images 5992..5999 and 6000..6014,
// rings 6016..6084 (its backup word included) and 6088..6216, areas 6216..6240 and 6240..6272,
// the wave 6272..75968.
TEST(CoreFileWriterHeader, VersionOneLocatesEveryTable) {
  const std::string bytes = CoreFileBytes(TwoOfEverything());
  EXPECT_EQ(U64At(bytes, 16), 128u);
  EXPECT_EQ(U64At(bytes, 32), 240u);
  EXPECT_EQ(U64At(bytes, 40), 2u);
  EXPECT_EQ(U64At(bytes, 48), 2464u);
  EXPECT_EQ(U64At(bytes, 56), 2u);
  EXPECT_EQ(U64At(bytes, 64), 2752u);
  EXPECT_EQ(U64At(bytes, 72), 2u);
  EXPECT_EQ(U64At(bytes, 80), 5976u);
  EXPECT_EQ(U64At(bytes, 88), 12u);
  EXPECT_EQ(bytes.size(), 75968u);
}

TEST(CoreFileWriterHeader, VersionZeroLocatesEveryTableFortyBytesEarlier) {
  CoreFile file = TwoOfEverything();
  file.format = 0;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 8), 88u);
  EXPECT_EQ(U64At(bytes, 24), 200u);
  EXPECT_EQ(U64At(bytes, 32), 2u);
  EXPECT_EQ(U64At(bytes, 40), 2424u);
  EXPECT_EQ(U64At(bytes, 48), 2u);
  EXPECT_EQ(U64At(bytes, 56), 2712u);
  EXPECT_EQ(U64At(bytes, 64), 2u);
  EXPECT_EQ(U64At(bytes, 72), 5936u);
  EXPECT_EQ(U64At(bytes, 80), 12u);
  EXPECT_EQ(bytes.size(), 75928u);
}

// ---------------------------------------------------------------------------------------------
// Records

TEST(CoreFileWriterReason, EveryField) {
  CoreFile file;
  file.reason = {.reason = 1,
                 .agent_name = "ORVEN-gfx906",
                 .node_id = 0x11223344,
                 .fault_reason_mask = 0x80000003,
                 .virtual_address = 0x7F1234567ABC,
                 .status = 0x1008,
                 .ring_addr = 0x7F0011223344,
                 .sig = -2};
  const std::string bytes = CoreFileBytes(file);
  const size_t at = 128;
  EXPECT_EQ(U32At(bytes, at), 1u);
  EXPECT_EQ(bytes.substr(at + 4, 64), std::string("ORVEN-gfx906") + Zeros(52));
  EXPECT_EQ(U32At(bytes, at + 68), 0x11223344u);
  EXPECT_EQ(U32At(bytes, at + 72), 0x80000003u);
  EXPECT_EQ(U32At(bytes, at + 76), 0u);
  EXPECT_EQ(U64At(bytes, at + 80), 0x7F1234567ABCu);
  EXPECT_EQ(U32At(bytes, at + 88), 0x1008u);
  EXPECT_EQ(U32At(bytes, at + 92), 0u);
  EXPECT_EQ(U64At(bytes, at + 96), 0x7F0011223344u);
  EXPECT_EQ(U32At(bytes, at + 104), 0xFFFFFFFEu);
  EXPECT_EQ(U32At(bytes, at + 108), 0u);
}

TEST(CoreFileWriterReason, NameAsLongAsItsFieldHasNoTerminator) {
  CoreFile file;
  file.reason.agent_name = std::string(70, 'n');
  file.reason.node_id = 5;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(bytes.substr(128 + 4, 64), std::string(64, 'n'));
  EXPECT_EQ(U32At(bytes, 128 + 68), 5u);
}

TEST(CoreFileWriterAgent, EveryField) {
  CoreFile file;
  file.agents.resize(2);
  file.agents[1] = {.name = "ORVEN-gfx906",
                    .gpu_id = 0x01020304,
                    .node_id = 2,
                    .drm_id = 128,
                    .location_id = 0x3B00,
                    .pci_domain_id = -1,
                    .pci_bus_id = 0x3B,
                    .pci_device_id = 4,
                    .chip_id = 0x5001,
                    .is_dp4x = true,
                    .num_cus = 64,
                    .max_engine_freq = 1700,
                    .max_memory_freq = 1000,
                    .waves_per_cu = 40,
                    .num_simds_per_cu = 4,
                    .num_ses = 3,
                    .handle = 0x0102030405060708};
  const std::string bytes = CoreFileBytes(file);
  const size_t at = 240 + 1112;
  EXPECT_EQ(bytes.substr(at, 1024), std::string("ORVEN-gfx906") + Zeros(1012));
  EXPECT_EQ(U32At(bytes, at + 1024), 0x01020304u);
  EXPECT_EQ(U32At(bytes, at + 1028), 2u);
  EXPECT_EQ(U32At(bytes, at + 1032), 128u);
  EXPECT_EQ(U32At(bytes, at + 1036), 0x3B00u);
  EXPECT_EQ(U32At(bytes, at + 1040), 0xFFFFFFFFu);
  EXPECT_EQ(U32At(bytes, at + 1044), 0x3Bu);
  EXPECT_EQ(U32At(bytes, at + 1048), 4u);
  EXPECT_EQ(U32At(bytes, at + 1052), 0x5001u);
  EXPECT_EQ(U32At(bytes, at + 1056), 1u);
  EXPECT_EQ(U32At(bytes, at + 1060), 64u);
  EXPECT_EQ(U32At(bytes, at + 1064), 1700u);
  EXPECT_EQ(U32At(bytes, at + 1068), 1000u);
  EXPECT_EQ(U32At(bytes, at + 1072), 40u);
  EXPECT_EQ(U32At(bytes, at + 1076), 4u);
  EXPECT_EQ(U32At(bytes, at + 1080), 3u);
  EXPECT_EQ(U32At(bytes, at + 1084), 0u);
  EXPECT_EQ(U64At(bytes, at + 1088), 0x0102030405060708u);
  EXPECT_EQ(U64At(bytes, at + 1096), 0u);
  EXPECT_EQ(U64At(bytes, at + 1104), 0u);
}

TEST(CoreFileWriterAgent, LocatesItsWaves) {
  const std::string bytes = CoreFileBytes(TwoOfEverything());
  EXPECT_EQ(U64At(bytes, 240 + 1096), 0u);
  EXPECT_EQ(U64At(bytes, 240 + 1104), 0u);
  EXPECT_EQ(U64At(bytes, 240 + 1112 + 1096), 6272u);
  EXPECT_EQ(U64At(bytes, 240 + 1112 + 1104), 1u);
}

TEST(CoreFileWriterQueue, EveryField) {
  CoreFile file;
  file.queues.resize(2);
  file.queues[1] = {.queue_id = 7,
                    .is_suspended = 1,
                    .gpu_id = 0x01020304,
                    .queue_type = 2,
                    .queue_format = 1,
                    .eop_address = 0x1111111111111111,
                    .eop_size = 0x2222222222222222,
                    .mqd_address = 0x3333333333333333,
                    .doorbell_offset = 0x4444444444444444,
                    .ring_address = 0x5555555555555555,
                    .wptr_address = 0x7777777777777777,
                    .rptr_address = 0x8888888888888888,
                    .wptr_value = 0x9999999999999999,
                    .rptr_value = 0xAAAAAAAAAAAAAAAA,
                    .context_sr_address = 0xCCCCCCCCCCCCCCCC,
                    .control_stack_size = 0xEEEEEEEEEEEEEEEE,
                    .ring = std::string(192, 'r'),
                    .header_backup = {},
                    .context = std::string(48, 'c')};
  const std::string bytes = CoreFileBytes(file);
  const size_t at = 240 + 144;
  EXPECT_EQ(U32At(bytes, at), 7u);
  EXPECT_EQ(U32At(bytes, at + 4), 1u);
  EXPECT_EQ(U32At(bytes, at + 8), 0x01020304u);
  EXPECT_EQ(U32At(bytes, at + 12), 2u);
  EXPECT_EQ(U32At(bytes, at + 16), 1u);
  EXPECT_EQ(U32At(bytes, at + 20), 0u);
  EXPECT_EQ(U64At(bytes, at + 24), 0x1111111111111111u);
  EXPECT_EQ(U64At(bytes, at + 32), 0x2222222222222222u);
  EXPECT_EQ(U64At(bytes, at + 40), 0x3333333333333333u);
  EXPECT_EQ(U64At(bytes, at + 48), 0x4444444444444444u);
  EXPECT_EQ(U64At(bytes, at + 56), 0x5555555555555555u);
  EXPECT_EQ(U64At(bytes, at + 64), 192u);
  EXPECT_EQ(U64At(bytes, at + 72), 0x7777777777777777u);
  EXPECT_EQ(U64At(bytes, at + 80), 0x8888888888888888u);
  EXPECT_EQ(U64At(bytes, at + 88), 0x9999999999999999u);
  EXPECT_EQ(U64At(bytes, at + 96), 0xAAAAAAAAAAAAAAAAu);
  // The records end at 528, the environment is the byte there, the ring is the next multiple of 8.
  EXPECT_EQ(U64At(bytes, at + 104), 536u);
  EXPECT_EQ(U64At(bytes, at + 112), 0xCCCCCCCCCCCCCCCCu);
  EXPECT_EQ(U64At(bytes, at + 120), 48u);
  EXPECT_EQ(U64At(bytes, at + 128), 0xEEEEEEEEEEEEEEEEu);
  EXPECT_EQ(U64At(bytes, at + 136), 728u);
  EXPECT_EQ(bytes.substr(536), std::string(192, 'r') + std::string(48, 'c'));
}

TEST(CoreFileWriterQueue, HeaderBackupLiesRightBehindTheRing) {
  const std::string bytes = CoreFileBytes(TwoOfEverything());
  EXPECT_EQ(U64At(bytes, 2464 + 64), 64u);  // ring_size leaves the backup array out
  EXPECT_EQ(U64At(bytes, 2464 + 104), 6016u);
  EXPECT_EQ(bytes.substr(6016, 64), std::string(64, 'r'));
  EXPECT_EQ(U32At(bytes, 6080), 0x1502u);
  EXPECT_EQ(U64At(bytes, 2464 + 144 + 104), 6088u);
  EXPECT_EQ(bytes.substr(6088, 128), std::string(128, 's'));
}

TEST(CoreFileWriterQueue, ContextAreasFollowTheRings) {
  const std::string bytes = CoreFileBytes(TwoOfEverything());
  EXPECT_EQ(U64At(bytes, 2464 + 136), 6216u);
  EXPECT_EQ(bytes.substr(6216, 24), std::string(24, 'c'));
  EXPECT_EQ(U64At(bytes, 2464 + 144 + 136), 6240u);
  EXPECT_EQ(bytes.substr(6240, 32), std::string(32, 'd'));
}

TEST(CoreFileWriterCodeObject, EveryField) {
  CoreFile file;
  file.code_objects.resize(2);
  file.code_objects[1] = {.addr_loaded = 0x1111111111111111,
                          .size_loaded = 0x2222222222222222,
                          .addr_elf = 0x3333333333333333,
                          .agent = 0x5555555555555555,
                          .elf = "image",
                          .kernels = {{0x4142434445464748, "vector_copy"}}};
  const std::string bytes = CoreFileBytes(file);
  const size_t at = 240 + 64;
  EXPECT_EQ(U64At(bytes, 240 + 40), 0u);  // the first has no kernel and needs no place for them
  EXPECT_EQ(U64At(bytes, 240 + 48), 0u);
  EXPECT_EQ(U64At(bytes, at), 0x1111111111111111u);
  EXPECT_EQ(U64At(bytes, at + 8), 0x2222222222222222u);
  EXPECT_EQ(U64At(bytes, at + 16), 0x3333333333333333u);
  EXPECT_EQ(U64At(bytes, at + 24), 5u);
  EXPECT_EQ(U64At(bytes, at + 32), 0x5555555555555555u);
  EXPECT_EQ(U64At(bytes, at + 40), 368u);
  EXPECT_EQ(U64At(bytes, at + 48), 1u);
  EXPECT_EQ(U64At(bytes, at + 56),
            1408u);  // kernel to 1400, environment 1400, then a multiple of 8
  EXPECT_EQ(U64At(bytes, 368), 0x4142434445464748u);
  EXPECT_EQ(bytes.substr(376, 1024), std::string("vector_copy") + Zeros(1013));
  EXPECT_EQ(bytes.substr(1408), "image");
}

TEST(CoreFileWriterCodeObject, KernelsOfAllLieInOneTable) {
  const std::string bytes = CoreFileBytes(TwoOfEverything());
  EXPECT_EQ(U64At(bytes, 2752 + 40), 2880u);
  EXPECT_EQ(U64At(bytes, 2752 + 48), 2u);
  EXPECT_EQ(U64At(bytes, 2752 + 64 + 40), 4944u);
  EXPECT_EQ(U64At(bytes, 2752 + 64 + 48), 1u);
  EXPECT_EQ(bytes.substr(2880 + 8, 3), std::string("k0\0", 3));
  EXPECT_EQ(bytes.substr(3912 + 8, 3), std::string("k1\0", 3));
  EXPECT_EQ(bytes.substr(4944 + 8, 3), std::string("k2\0", 3));
  EXPECT_EQ(U64At(bytes, 2752 + 56), 5992u);
  EXPECT_EQ(bytes.substr(5992, 7), "elf one");
  EXPECT_EQ(U64At(bytes, 2752 + 64 + 56), 6000u);
  EXPECT_EQ(bytes.substr(6000, 14), "elf number two");
}

TEST(CoreFileWriterEnvironment, EndsInAZeroByteThatItsSizeCounts) {
  const std::string bytes = CoreFileBytes(TwoOfEverything());
  EXPECT_EQ(bytes.substr(5976, 12), std::string("HOME=/root\n\0", 12));
}

TEST(CoreFileWriterWave, EveryField) {
  SavedWave wave = {.mode = 1,
                    .status = 2,
                    .trapsts = 3,
                    .hw_id = 4,
                    .gpr_alloc = 5,
                    .lds_alloc = 6,
                    .ib_sts = 7,
                    .pc = 0x0000000900000008,
                    .inst_dw0 = 10,
                    .inst_dw1 = 11,
                    .ib_dbg0 = 12,
                    .ib_dbg1 = 13,
                    .m0 = 14,
                    .exec = 0x0000001000000015,
                    .vgprs = std::vector<uint32_t>(257, 0x77),
                    .sgprs = {0x51, 0x52}};
  wave.vgprs[256] = 0x78;  // v0 of lane 1
  CoreFile file;
  file.agents.resize(1);
  file.agents[0].waves = {SavedWave{}, wave};
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 240 + 1096), 1360u);
  EXPECT_EQ(U64At(bytes, 240 + 1104), 2u);
  const size_t at = 1360 + 69696;
  EXPECT_EQ(bytes.size(), at + 69696);
  EXPECT_EQ(bytes.substr(1360, 69696), Zeros(69696));
  for (uint32_t i = 0; i < 7; ++i) {
    EXPECT_EQ(U32At(bytes, at + 4 * i), i + 1);
  }
  EXPECT_EQ(U32At(bytes, at + 28), 8u);  // PC low, high
  EXPECT_EQ(U32At(bytes, at + 32), 9u);
  EXPECT_EQ(U32At(bytes, at + 36), 10u);
  EXPECT_EQ(U32At(bytes, at + 40), 11u);
  EXPECT_EQ(U32At(bytes, at + 44), 12u);
  EXPECT_EQ(U32At(bytes, at + 48), 13u);
  EXPECT_EQ(U32At(bytes, at + 52), 14u);
  EXPECT_EQ(U32At(bytes, at + 56), 0x15u);  // EXEC low, high
  EXPECT_EQ(U32At(bytes, at + 60), 0x10u);
  EXPECT_EQ(U32At(bytes, at + 64), 0x77u);
  EXPECT_EQ(U32At(bytes, at + 64 + 4 * 255), 0x77u);
  EXPECT_EQ(U32At(bytes, at + 64 + 4 * 256), 0x78u);
  EXPECT_EQ(bytes.substr(at + 64 + 4 * 257, 4 * 16127), Zeros(4 * 16127));
  EXPECT_EQ(U32At(bytes, at + 65600), 0x51u);
  EXPECT_EQ(U32At(bytes, at + 65604), 0x52u);
  EXPECT_EQ(bytes.substr(at + 65608), Zeros(4088));
}

TEST(CoreFileWriterWave, MadeOneByOne) {
  CoreFile file;
  file.agents.resize(1);
  file.agents[0].wave_count = 3;
  file.agents[0].make_wave = [](uint64_t index) {
    return SavedWave{.mode = 0xA0 + static_cast<uint32_t>(index)};
  };
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 240 + 1104), 3u);
  EXPECT_EQ(U32At(bytes, 1360), 0xA0u);
  EXPECT_EQ(U32At(bytes, 1360 + 69696), 0xA1u);
  EXPECT_EQ(U32At(bytes, 1360 + 2 * 69696), 0xA2u);
  EXPECT_EQ(bytes.size(), 1360u + 3 * 69696);
}

// ---------------------------------------------------------------------------------------------
// Layout

TEST(CoreFileWriterLayout, RegionsInAnotherOrder) {
  CoreFile file = TwoOfEverything();
  file.layout.order = {Region::kWaves,       Region::kContexts,    Region::kRings,  Region::kElfs,
                       Region::kKernels,     Region::kCodeObjects, Region::kQueues, Region::kAgents,
                       Region::kEnvironment, Region::kReason};
  const std::string bytes = CoreFileBytes(file);
  // wave 128..69824, areas 69824..69848 and 69848..69880, rings 69880..69948 and 69952..70080,
  // images 70080..70087 and 70088..70102, kernels 70104..73200, code objects 73200..73328,
  // queues 73328..73616, agents 73616..75840, environment 75840..75852, reason 75856..75968.
  EXPECT_EQ(U64At(bytes, 16), 75856u);
  EXPECT_EQ(U64At(bytes, 32), 73616u);
  EXPECT_EQ(U64At(bytes, 48), 73328u);
  EXPECT_EQ(U64At(bytes, 64), 73200u);
  EXPECT_EQ(U64At(bytes, 80), 75840u);
  EXPECT_EQ(bytes.size(), 75968u);
  EXPECT_EQ(bytes.substr(73616, 6), std::string("first\0", 6));
  EXPECT_EQ(U64At(bytes, 73616 + 1112 + 1096), 128u);
  EXPECT_EQ(U32At(bytes, 73328), 3u);
  EXPECT_EQ(U64At(bytes, 73328 + 104), 69880u);
  EXPECT_EQ(U64At(bytes, 73328 + 136), 69824u);
  EXPECT_EQ(U64At(bytes, 73200 + 40), 70104u);
  EXPECT_EQ(U64At(bytes, 73200 + 56), 70080u);
  EXPECT_EQ(bytes.substr(70088, 14), "elf number two");
}

TEST(CoreFileWriterLayout, MisalignedRegionsLeaveFillerBetween) {
  CoreFile file;
  file.agents.resize(1);
  file.agents[0].name = "agent";
  file.layout.alignment = 16;
  file.layout.misalignment = 3;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 16), 131u);
  EXPECT_EQ(U64At(bytes, 32), 243u);  // the reason ends at 243, which is 3 beyond a multiple of 16
  EXPECT_EQ(U64At(bytes, 80), 1363u);
  EXPECT_EQ(bytes.substr(128, 3), "\xEE\xEE\xEE");
  EXPECT_EQ(bytes.substr(243, 5), "agent");
  EXPECT_EQ(bytes.substr(1355, 8), std::string(8, '\xEE'));
  EXPECT_EQ(bytes.size(), 1364u);
}

TEST(CoreFileWriterLayout, GapsLieBeforeEveryRegionAndImage) {
  CoreFile file;
  file.queues.resize(1);
  file.queues[0].ring = std::string(64, 'r');
  file.queues[0].header_backup = {0x1234};
  file.queues[0].context = "area";
  file.layout.alignment = 1;
  file.layout.gap = 5;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 16), 133u);
  EXPECT_EQ(U64At(bytes, 48), 250u);
  EXPECT_EQ(U64At(bytes, 80), 399u);
  EXPECT_EQ(U64At(bytes, 250 + 104), 405u);
  EXPECT_EQ(U64At(bytes, 250 + 136), 478u);
  const std::string gap(5, '\xEE');
  EXPECT_EQ(bytes.substr(128, 5), gap);
  EXPECT_EQ(bytes.substr(245, 5), gap);
  EXPECT_EQ(bytes.substr(394, 5), gap);
  EXPECT_EQ(bytes.substr(400),
            gap + std::string(64, 'r') + std::string("\x34\x12\0\0", 4) + gap + "area");
}

TEST(CoreFileWriterLayout, PlaceTellsWhereEverythingLies) {
  const Placement at = Place(TwoOfEverything());
  EXPECT_EQ(at.file_size, 75968u);
  EXPECT_EQ(at.reason, 128u);
  EXPECT_EQ(at.agents, (std::vector<uint64_t>{240, 1352}));
  EXPECT_EQ(at.queues, (std::vector<uint64_t>{2464, 2608}));
  EXPECT_EQ(at.code_objects, (std::vector<uint64_t>{2752, 2816}));
  EXPECT_EQ(at.kernels, (std::vector<uint64_t>{2880, 3912, 4944}));
  EXPECT_EQ(at.environment, 5976u);
  EXPECT_EQ(at.elfs, (std::vector<uint64_t>{5992, 6000}));
  EXPECT_EQ(at.rings, (std::vector<uint64_t>{6016, 6088}));
  EXPECT_EQ(at.contexts, (std::vector<uint64_t>{6216, 6240}));
  EXPECT_EQ(at.waves, (std::vector<uint64_t>{0, 6272}));
}

// ---------------------------------------------------------------------------------------------
// Overrides

TEST(CoreFileWriterOverride, ChangesOneFieldOfOneRecordOfEachKind) {
  CoreFile file = TwoOfEverything();
  const std::string before = CoreFileBytes(file);
  using R = Override::Record;
  file.overrides = {
      {.record = R::kHeader, .offset = 40, .value = 0x1111111111111111},
      {.record = R::kReason, .offset = 0, .width = 4, .value = 9},
      {.record = R::kAgent, .index = 1, .offset = 1056, .width = 1, .value = 0xFF},
      {.record = R::kQueue, .index = 1, .offset = 104, .value = 0x2222222222222222},
      {.record = R::kCodeObject, .index = 1, .offset = 48, .value = 0x3333333333333333},
      {.record = R::kKernel, .index = 2, .offset = 0, .value = 0x4444444444444444},
  };
  const std::string after = CoreFileBytes(file);
  std::string expected = before;
  expected.replace(40, 8, std::string(8, '\x11'));
  expected.replace(128, 4, std::string("\x09\0\0\0", 4));
  expected.replace(240 + 1112 + 1056, 1, std::string(1, '\xFF'));
  expected.replace(2464 + 144 + 104, 8, std::string(8, '\x22'));
  expected.replace(2752 + 64 + 48, 8, std::string(8, '\x33'));
  expected.replace(4944, 8, std::string(8, '\x44'));
  EXPECT_TRUE(after == expected);
  EXPECT_FALSE(after == before);
}

TEST(CoreFileWriterOverride, FaultSizeIsAFieldOfItsOwn) {
  CoreFile file;
  file.fault_size = 40;
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 24), 40u);
  EXPECT_EQ(U64At(bytes, 80), 240u);  // the record itself is whole
}

// ---------------------------------------------------------------------------------------------
// Contents and streams

TEST(CoreFileWriterContent, BytesAreHandedOnAsTheyAre) {
  const Content content = "abc";
  std::string taken;
  content.Produce([&taken](const std::string& piece) { taken += piece; });
  EXPECT_EQ(content.size(), 3u);
  EXPECT_EQ(taken, "abc");
}

TEST(CoreFileWriterContent, ProducerMakesTheRegionPieceByPiece) {
  CoreFile file;
  file.queues.resize(1);
  file.queues[0].ring = Content(6, [](const auto& take) {
    take("ab");
    take("cdef");
  });
  file.queues[0].context = "area";
  const std::string bytes = CoreFileBytes(file);
  EXPECT_EQ(U64At(bytes, 240 + 64), 6u);
  EXPECT_EQ(U64At(bytes, 240 + 104), 392u);
  EXPECT_EQ(U64At(bytes, 240 + 136), 400u);
  EXPECT_EQ(bytes.substr(392),
            "abcdef\xEE\xEE"
            "area");
}

TEST(CoreFileWriterStream, WrittenFileEqualsTheBytesInMemory) {
  CoreFile file = TwoOfEverything();
  file.layout.gap = 100'000;  // more than one piece of filler
  file.layout.misalignment = 5;
  file.code_objects[0].elf = Content(300'000, [](const auto& take) {
    for (int i = 0; i < 3; ++i) {
      take(std::string(100'000, static_cast<char>('0' + i)));
    }
  });
  const TempDir dir;
  ASSERT_TRUE(WriteCoreFile(file, dir.Path("core_0")));
  const std::string written = ReadText(dir.Path("core_0"));
  EXPECT_EQ(written.size(), Place(file).file_size);
  EXPECT_TRUE(written == CoreFileBytes(file));
}

TEST(CoreFileWriterStream, MissingDirectoryIsReported) {
  const TempDir dir;
  EXPECT_FALSE(WriteCoreFile(CoreFile{}, dir.Path("no_such_directory/core_0")));
  EXPECT_EQ(errno, ENOENT);
}

TEST(CoreFileWriterStream, FullDeviceIsReported) {
  EXPECT_FALSE(WriteCoreFile(TwoOfEverything(), "/dev/full"));
  EXPECT_EQ(errno, ENOSPC);
}

}  // namespace
}  // namespace sample
