// The records that the core file writer writes, read back by offsets written out by hand.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core_file_writer.h"
#include "raw_bytes.h"
#include "two_of_everything.h"

namespace sample {
namespace {

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

}  // namespace
}  // namespace sample
