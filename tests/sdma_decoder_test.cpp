// SDMA streams to text: the packets' sizes, packets of ordinary values, and the walk from one to
// the next.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "core_dump_info.h"
#include "core_file_writer.h"
#include "sdma_packets.h"
#include "sdma_text.h"

namespace {

using Words = std::vector<uint32_t>;

TEST(SdmaPackets, Sizes) {
  EXPECT_EQ(sizeof(SDMA_PKT_COPY_LINEAR_TAG), 28u);
  EXPECT_EQ(sizeof(SDMA_PKT_COPY_LINEAR_RECT_TAG), 52u);
  EXPECT_EQ(sizeof(SDMA_PKT_FENCE_TAG), 16u);
  EXPECT_EQ(sizeof(SDMA_PKT_TRAP_TAG), 8u);
  EXPECT_EQ(sizeof(SDMA_PKT_POLL_REGMEM_TAG), 24u);
  EXPECT_EQ(sizeof(SDMA_PKT_ATOMIC_TAG), 32u);
  EXPECT_EQ(sizeof(SDMA_PKT_CONSTANT_FILL_TAG), 20u);
  EXPECT_EQ(sizeof(SDMA_PKT_TIMESTAMP_TAG), 12u);
}

TEST(SdmaPackets, FieldWidthsOfTheRectangularCopy) {
  EXPECT_EQ(SDMA_PKT_COPY_LINEAR_RECT::pitch_bits, 19u);
  EXPECT_EQ(SDMA_PKT_COPY_LINEAR_RECT::slice_bits, 28u);
  EXPECT_EQ(SDMA_PKT_COPY_LINEAR_RECT::rect_xy_bits, 14u);
  EXPECT_EQ(SDMA_PKT_COPY_LINEAR_RECT::rect_z_bits, 11u);
}

// ---------------------------------------------------------------------------------------------
// Whole packets of ordinary values

TEST(SdmaPacketText, CopyLinear) {
  EXPECT_EQ(Describe({0xABCD0001, 0x00000FFF, 0x02010000, 0x12345678, 0x00007F01, 0x9ABCDEF0,
                      0x00007F02}),
            "packet sub index: 0\n"
            "op: COPY (1)\n"
            "subop: COPY LINEAR (0)\n"
            "extra_info: 43981\n"
            "count: 4095\n"
            "dst_swap: 1\n"
            "src_swap: 2\n"
            "src_addr_lo: 0X12345678\n"
            "src_addr_hi: 0X7F01\n"
            "dst_addr_lo: 0X9ABCDEF0\n"
            "dst_addr_hi: 0X7F02\n"
            "\n"
            "\n");
}

TEST(SdmaPacketText, CopyLinearRect) {
  EXPECT_EQ(Describe({0x40000401,                          // element 2
                      0x11111111, 0x00007F11, 0x00020001,  // x 1, y 2
                      0x00008003,                          // z 3, pitch 4
                      0x00000005,                          // slice pitch 5
                      0x22222222, 0x00007F22, 0x00070006,  // x 6, y 7
                      0x00012008,                          // z 8, pitch 9
                      0x0000000A,                          // slice pitch 10
                      0x000C000B, 0x0102000D}),            // x 11, y 12, z 13, swaps 2 and 1
            "packet sub index: 0\n"
            "op: COPY (1)\n"
            "subop: COPY LINEAR RECT (4)\n"
            "element: 2\n"
            "src_addr_lo: 0X11111111\n"
            "src_addr_hi: 0X7F11\n"
            "src_offset_x: 1\n"
            "src_offset_y: 2\n"
            "src_offset_z: 3\n"
            "src_pitch: 4\n"
            "src_slice_pitch: 5\n"
            "dst_addr_lo: 0X22222222\n"
            "dst_addr_hi: 0X7F22\n"
            "dst_offset_x: 6\n"
            "dst_offset_y: 7\n"
            "dst_offset_z: 8\n"
            "dst_pitch: 9\n"
            "dst_slice_pitch: 10\n"
            "rect_x: 11\n"
            "rect_y: 12\n"
            "rect_z: 13\n"
            "dst_swap: 2\n"
            "src_swap: 1\n"
            "\n"
            "\n");
}

TEST(SdmaPacketText, EveryOtherCopyIsRectangular) {
  for (const auto& [subop, shown] :
       {std::pair{0x01u, "1"}, std::pair{0x02u, "2"}, std::pair{0x10u, "16"},
        std::pair{0x80u, "128"}, std::pair{0xFFu, "255"}}) {
    Words words(13);
    words[0] = 1 | subop << 8;
    EXPECT_EQ(Describe(words), std::string("packet sub index: 0\n"
                                           "op: COPY (1)\n"
                                           "subop: COPY LINEAR RECT (") +
                                   shown +
                                   ")\n"
                                   "element: 0\n"
                                   "src_addr_lo: 0X0\n"
                                   "src_addr_hi: 0X0\n"
                                   "src_offset_x: 0\n"
                                   "src_offset_y: 0\n"
                                   "src_offset_z: 0\n"
                                   "src_pitch: 0\n"
                                   "src_slice_pitch: 0\n"
                                   "dst_addr_lo: 0X0\n"
                                   "dst_addr_hi: 0X0\n"
                                   "dst_offset_x: 0\n"
                                   "dst_offset_y: 0\n"
                                   "dst_offset_z: 0\n"
                                   "dst_pitch: 0\n"
                                   "dst_slice_pitch: 0\n"
                                   "rect_x: 0\n"
                                   "rect_y: 0\n"
                                   "rect_z: 0\n"
                                   "dst_swap: 0\n"
                                   "src_swap: 0\n"
                                   "\n"
                                   "\n");
  }
}

TEST(SdmaPacketText, Fence) {
  EXPECT_EQ(Describe({0x026B0105, 0xDEADBEE0, 0x00007F33, 0x00003039}),
            "packet sub index: 0\n"
            "op: FENCE (5)\n"
            "subop: 1\n"
            "mtype: 3\n"
            "gcc: 1\n"
            "sys: 0\n"
            "pad1: 1\n"
            "snp: 1\n"
            "gpa: 0\n"
            "l2_policy: 2\n"
            "addr_lo: 0XDEADBEE0\n"
            "addr_hi: 0X7F33\n"
            "data: 12345\n"
            "\n"
            "\n");
}

TEST(SdmaPacketText, Trap) {
  EXPECT_EQ(Describe({0x00000206, 0xF0000064}),
            "packet sub index: 0\n"
            "op: TRAP (6)\n"
            "subop: 2\n"
            "int_ctx: 100\n"
            "\n"
            "\n");
}

TEST(SdmaPacketText, PollRegmem) {
  EXPECT_EQ(Describe({0xB4000308, 0x0000ABC0, 0x00007F44, 0x80000000, 0x7FFFFFFF, 0x00C8000A}),
            "packet sub index: 0\n"
            "op: POLL REGMEM (8)\n"
            "subop: 3\n"
            "hdp_flush: 1\n"
            "func: 3\n"
            "mem_poll: 1\n"
            "addr_lo: 0XABC0\n"
            "addr_hi: 0X7F44\n"
            "value: -2147483648\n"
            "mask: 2147483647\n"
            "interval: 10\n"
            "retry_count: 200\n"
            "\n"
            "\n");
}

TEST(SdmaPacketText, Atomic) {
  EXPECT_EQ(Describe({0x5E01040A, 0x00000010, 0x00007F55, 0xAAAAAAAA, 0x0000BBBB, 0xFFFFFFFE,
                      0x00000011, 0x00000020}),
            "packet sub index: 0\n"
            "op: ATOMIC (10)\n"
            "subop: 4\n"
            "l: 1\n"
            "operation: 47\n"
            "addr_lo: 0X10\n"
            "addr_hi: 0X7F55\n"
            "src_data_lo: 0XAAAAAAAA\n"
            "src_data_hi: 0XBBBB\n"
            "cmp_data_lo: -2\n"
            "cmp_data_hi: 17\n"
            "loop_interval: 32\n"
            "\n"
            "\n");
}

TEST(SdmaPacketText, ConstantFill) {
  EXPECT_EQ(Describe({0x8001050B, 0x00001000, 0x00007F66, 0xFFFFFFFF, 0x003FFFFC}),
            "packet sub index: 0\n"
            "op: CONST FILL (11)\n"
            "subop: 5\n"
            "sw: 1\n"
            "fillsize: 2\n"
            "dst_addr_lo: 0X1000\n"
            "dst_addr_hi: 0X7F66\n"
            "data: -1\n"
            "count: 4194300\n"
            "\n"
            "\n");
}

TEST(SdmaPacketText, Timestamp) {
  EXPECT_EQ(Describe({0xFFFF060D, 0x000000C0, 0x00007F77}),
            "packet sub index: 0\n"
            "op: TIMESTAMP (13)\n"
            "subop: 6\n"
            "addr_lo: 0XC0\n"
            "addr_hi: 0X7F77\n"
            "\n"
            "\n");
}

// ---------------------------------------------------------------------------------------------
// The walk

TEST(SdmaWalk, OfNothingIsALineFeed) { EXPECT_EQ(Describe({}), "\n"); }

TEST(SdmaWalk, OfANegativeSizeIsALineFeed) {
  const std::string trap = sample::Dwords({6, 7});
  EXPECT_EQ(DescribeBytes(trap, -1), "\n");
  EXPECT_EQ(DescribeBytes(trap, -8), "\n");
  EXPECT_EQ(DescribeBytes(trap, INT32_MIN), "\n");
}

TEST(SdmaWalk, OfZerosFindsNoPacketInAnyWord) {
  EXPECT_EQ(Describe({0, 0, 0}),
            "packet sub index: 0\n"
            "Invalid sdma packet\n"
            "packet sub index: 1\n"
            "Invalid sdma packet\n"
            "packet sub index: 2\n"
            "Invalid sdma packet\n"
            "\n");
}

TEST(SdmaWalk, KnowsSevenOps) {
  for (uint32_t op = 0; op < 256; ++op) {
    const bool known = op == 1 || op == 5 || op == 6 || op == 8 || op == 10 || op == 11 || op == 13;
    if (known) {
      continue;
    }
    EXPECT_EQ(Describe({0xFFFFFF00 | op}),
              "packet sub index: 0\n"
              "Invalid sdma packet\n"
              "\n")
        << "op " << op;
  }
}

TEST(SdmaWalk, GoesThroughAnUnknownPacketWordByWord) {
  EXPECT_EQ(Describe({0x00000002, 0xFFFFFF00, 0x00000306, 0x00000005, 0x00000007}),
            "packet sub index: 0\n"
            "Invalid sdma packet\n"
            "packet sub index: 1\n"
            "Invalid sdma packet\n"
            "packet sub index: 2\n"
            "op: TRAP (6)\n"
            "subop: 3\n"
            "int_ctx: 5\n"
            "\n"
            "packet sub index: 3\n"
            "Invalid sdma packet\n"
            "\n");
}

TEST(SdmaWalk, NumbersPacketsOfAllLengths) {
  EXPECT_EQ(Describe({0x0000000D, 1, 2,     //
                      0x00000006, 3,        //
                      0,                    //
                      0x00000005, 4, 5, 6,  //
                      0x00000006, 7}),
            "packet sub index: 0\n"
            "op: TIMESTAMP (13)\n"
            "subop: 0\n"
            "addr_lo: 0X1\n"
            "addr_hi: 0X2\n"
            "\n"
            "packet sub index: 1\n"
            "op: TRAP (6)\n"
            "subop: 0\n"
            "int_ctx: 3\n"
            "\n"
            "packet sub index: 2\n"
            "Invalid sdma packet\n"
            "packet sub index: 3\n"
            "op: FENCE (5)\n"
            "subop: 0\n"
            "mtype: 0\n"
            "gcc: 0\n"
            "sys: 0\n"
            "pad1: 0\n"
            "snp: 0\n"
            "gpa: 0\n"
            "l2_policy: 0\n"
            "addr_lo: 0X4\n"
            "addr_hi: 0X5\n"
            "data: 6\n"
            "\n"
            "packet sub index: 4\n"
            "op: TRAP (6)\n"
            "subop: 0\n"
            "int_ctx: 7\n"
            "\n"
            "\n");
}

TEST(SdmaWalk, TextIsAppended) {
  CoreDumpInfo analyser;
  std::string info = "before";
  EXPECT_TRUE(analyser.GenSdmaPacketInfo(0, 0, info));
  EXPECT_EQ(info, "before\n");
}

TEST(SdmaWalk, ALastPacketIsReadOnBehindTheStream) {
  EXPECT_EQ(DescribeBytes(sample::Dwords({6, 7, 6, 8}), 4), kTrapText);
}

TEST(SdmaWalk, ASizeInTheMiddleOfAWordHasOnePacketMore) {
  EXPECT_EQ(DescribeBytes(sample::Dwords({0, 6, 7}), 5),
            "packet sub index: 0\n"
            "Invalid sdma packet\n"
            "packet sub index: 1\n"
            "op: TRAP (6)\n"
            "subop: 0\n"
            "int_ctx: 7\n"
            "\n"
            "\n");
}

TEST(SdmaWalk, ASizeOfOneByteHasAPacket) {
  EXPECT_EQ(DescribeBytes(sample::Dwords({0x0000FF06, 7}), 1),
            "packet sub index: 0\n"
            "op: TRAP (6)\n"
            "subop: 255\n"
            "int_ctx: 7\n"
            "\n"
            "\n");
}

TEST(SdmaWalk, PacketsMayLieAtAnyAddress) {
  const std::string bytes = std::string("x").append(sample::Dwords({6, 7}));
  CoreDumpInfo analyser;
  std::string info;
  EXPECT_TRUE(analyser.GenSdmaPacketInfo(reinterpret_cast<uint64_t>(bytes.data() + 1), 8, info));
  EXPECT_EQ(info, kTrapText);
}

}  // namespace
