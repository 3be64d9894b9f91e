// SDMA rings to text, packet by packet, and the layouts of the packets.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "captured_output.h"
#include "core_dump_info.h"
#include "core_file_writer.h"
#include "sdma_packets.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;
using Words = std::vector<uint32_t>;

// The text of `bytes` taken as a stream of `size` of them; the bytes lie in a buffer of just their
// size.
std::string DescribeBytes(const std::string& bytes, int size) {
  const std::vector<char> buffer(bytes.begin(), bytes.end());
  CoreDumpInfo analyser;
  std::string info;
  EXPECT_TRUE(analyser.GenSdmaPacketInfo(reinterpret_cast<uint64_t>(buffer.data()), size, info));
  return info;
}

std::string Describe(const Words& words) {
  return DescribeBytes(sample::Dwords(words), static_cast<int>(4 * words.size()));
}

// ---------------------------------------------------------------------------------------------
// Packet layouts, field by field

template <typename Packet>
struct Field {
  size_t word;
  int high;
  int low;
  unsigned int (*get)(const Packet&);
  // What the report shows when all bits of the field are set: a line in place of the one with the
  // same label, "" for no change; null for a field that selects the packet.
  const char* line;
};

#define MEMBER(member) [](const Packet& packet) -> unsigned int { return packet.member; }

// What is known of one packet type.
template <typename Type>
struct Layout {
  using Packet = Type;

  Words words;                        // a packet of zeros but for what selects it
  std::vector<std::string> lines;     // its text
  std::vector<Field<Packet>> fields;  // that share out all bits
  std::vector<unsigned int (*)(const Packet&)> whole_words;
};

struct CopyLinear : Layout<SDMA_PKT_COPY_LINEAR> {
  static constexpr char kName[] = "CopyLinear";

  CopyLinear() {
    words = {0x00000001, 0, 0, 0, 0, 0, 0};
    lines = {"op: COPY (1)\n",     "subop: COPY LINEAR (0)\n",
             "extra_info: 0\n",    "count: 0\n",
             "dst_swap: 0\n",      "src_swap: 0\n",
             "src_addr_lo: 0X0\n", "src_addr_hi: 0X0\n",
             "dst_addr_lo: 0X0\n", "dst_addr_hi: 0X0\n"};
    fields = {
        {0, 7, 0, MEMBER(HEADER_UNION.op), nullptr},
        {0, 15, 8, MEMBER(HEADER_UNION.sub_op), nullptr},
        {0, 31, 16, MEMBER(HEADER_UNION.extra_info), "extra_info: 65535\n"},
        {1, 21, 0, MEMBER(COUNT_UNION.count), "count: 4194303\n"},
        {1, 31, 22, MEMBER(COUNT_UNION.reserved_0), ""},
        {2, 15, 0, MEMBER(PARAMETER_UNION.reserved_0), ""},
        {2, 17, 16, MEMBER(PARAMETER_UNION.dst_swap), "dst_swap: 3\n"},
        {2, 23, 18, MEMBER(PARAMETER_UNION.reserved_1), ""},
        {2, 25, 24, MEMBER(PARAMETER_UNION.src_swap), "src_swap: 3\n"},
        {2, 31, 26, MEMBER(PARAMETER_UNION.reserved_2), ""},
        {3, 31, 0, MEMBER(SRC_ADDR_LO_UNION.src_addr_31_0), "src_addr_lo: 0XFFFFFFFF\n"},
        {4, 31, 0, MEMBER(SRC_ADDR_HI_UNION.src_addr_63_32), "src_addr_hi: 0XFFFFFFFF\n"},
        {5, 31, 0, MEMBER(DST_ADDR_LO_UNION.dst_addr_31_0), "dst_addr_lo: 0XFFFFFFFF\n"},
        {6, 31, 0, MEMBER(DST_ADDR_HI_UNION.dst_addr_63_32), "dst_addr_hi: 0XFFFFFFFF\n"},
    };
    whole_words = {MEMBER(HEADER_UNION.DW_0_DATA),      MEMBER(COUNT_UNION.DW_1_DATA),
                   MEMBER(PARAMETER_UNION.DW_2_DATA),   MEMBER(SRC_ADDR_LO_UNION.DW_3_DATA),
                   MEMBER(SRC_ADDR_HI_UNION.DW_4_DATA), MEMBER(DST_ADDR_LO_UNION.DW_5_DATA),
                   MEMBER(DST_ADDR_HI_UNION.DW_6_DATA)};
  }
};

struct CopyLinearRect : Layout<SDMA_PKT_COPY_LINEAR_RECT> {
  static constexpr char kName[] = "CopyLinearRect";

  CopyLinearRect() {
    words = {0x00000401, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    lines = {"op: COPY (1)\n",       "subop: COPY LINEAR RECT (4)\n",
             "element: 0\n",         "src_addr_lo: 0X0\n",
             "src_addr_hi: 0X0\n",   "src_offset_x: 0\n",
             "src_offset_y: 0\n",    "src_offset_z: 0\n",
             "src_pitch: 0\n",       "src_slice_pitch: 0\n",
             "dst_addr_lo: 0X0\n",   "dst_addr_hi: 0X0\n",
             "dst_offset_x: 0\n",    "dst_offset_y: 0\n",
             "dst_offset_z: 0\n",    "dst_pitch: 0\n",
             "dst_slice_pitch: 0\n", "rect_x: 0\n",
             "rect_y: 0\n",          "rect_z: 0\n",
             "dst_swap: 0\n",        "src_swap: 0\n"};
    fields = {
        {0, 7, 0, MEMBER(HEADER_UNION.op), nullptr},
        {0, 15, 8, MEMBER(HEADER_UNION.sub_op), "subop: COPY LINEAR RECT (255)\n"},
        {0, 28, 16, MEMBER(HEADER_UNION.reserved), ""},
        {0, 31, 29, MEMBER(HEADER_UNION.element), "element: 7\n"},
        {1, 31, 0, MEMBER(SRC_ADDR_LO_UNION.src_addr_31_0), "src_addr_lo: 0XFFFFFFFF\n"},
        {2, 31, 0, MEMBER(SRC_ADDR_HI_UNION.src_addr_63_32), "src_addr_hi: 0XFFFFFFFF\n"},
        {3, 13, 0, MEMBER(SRC_PARAMETER_1_UNION.src_offset_x), "src_offset_x: 16383\n"},
        {3, 15, 14, MEMBER(SRC_PARAMETER_1_UNION.reserved_1), ""},
        {3, 29, 16, MEMBER(SRC_PARAMETER_1_UNION.src_offset_y), "src_offset_y: 16383\n"},
        {3, 31, 30, MEMBER(SRC_PARAMETER_1_UNION.reserved_2), ""},
        {4, 10, 0, MEMBER(SRC_PARAMETER_2_UNION.src_offset_z), "src_offset_z: 2047\n"},
        {4, 12, 11, MEMBER(SRC_PARAMETER_2_UNION.reserved_1), ""},
        {4, 31, 13, MEMBER(SRC_PARAMETER_2_UNION.src_pitch), "src_pitch: 524287\n"},
        {5, 27, 0, MEMBER(SRC_PARAMETER_3_UNION.src_slice_pitch), "src_slice_pitch: 268435455\n"},
        {5, 31, 28, MEMBER(SRC_PARAMETER_3_UNION.reserved_1), ""},
        {6, 31, 0, MEMBER(DST_ADDR_LO_UNION.dst_addr_31_0), "dst_addr_lo: 0XFFFFFFFF\n"},
        {7, 31, 0, MEMBER(DST_ADDR_HI_UNION.dst_addr_63_32), "dst_addr_hi: 0XFFFFFFFF\n"},
        {8, 13, 0, MEMBER(DST_PARAMETER_1_UNION.dst_offset_x), "dst_offset_x: 16383\n"},
        {8, 15, 14, MEMBER(DST_PARAMETER_1_UNION.reserved_1), ""},
        {8, 29, 16, MEMBER(DST_PARAMETER_1_UNION.dst_offset_y), "dst_offset_y: 16383\n"},
        {8, 31, 30, MEMBER(DST_PARAMETER_1_UNION.reserved_2), ""},
        {9, 10, 0, MEMBER(DST_PARAMETER_2_UNION.dst_offset_z), "dst_offset_z: 2047\n"},
        {9, 12, 11, MEMBER(DST_PARAMETER_2_UNION.reserved_1), ""},
        {9, 31, 13, MEMBER(DST_PARAMETER_2_UNION.dst_pitch), "dst_pitch: 524287\n"},
        {10, 27, 0, MEMBER(DST_PARAMETER_3_UNION.dst_slice_pitch), "dst_slice_pitch: 268435455\n"},
        {10, 31, 28, MEMBER(DST_PARAMETER_3_UNION.reserved_1), ""},
        {11, 13, 0, MEMBER(RECT_PARAMETER_1_UNION.rect_x), "rect_x: 16383\n"},
        {11, 15, 14, MEMBER(RECT_PARAMETER_1_UNION.reserved_1), ""},
        {11, 29, 16, MEMBER(RECT_PARAMETER_1_UNION.rect_y), "rect_y: 16383\n"},
        {11, 31, 30, MEMBER(RECT_PARAMETER_1_UNION.reserved_2), ""},
        {12, 10, 0, MEMBER(RECT_PARAMETER_2_UNION.rect_z), "rect_z: 2047\n"},
        {12, 15, 11, MEMBER(RECT_PARAMETER_2_UNION.reserved_1), ""},
        {12, 17, 16, MEMBER(RECT_PARAMETER_2_UNION.dst_swap), "dst_swap: 3\n"},
        {12, 23, 18, MEMBER(RECT_PARAMETER_2_UNION.reserved_2), ""},
        {12, 25, 24, MEMBER(RECT_PARAMETER_2_UNION.src_swap), "src_swap: 3\n"},
        {12, 31, 26, MEMBER(RECT_PARAMETER_2_UNION.reserved_3), ""},
    };
    whole_words = {
        MEMBER(HEADER_UNION.DW_0_DATA),           MEMBER(SRC_ADDR_LO_UNION.DW_1_DATA),
        MEMBER(SRC_ADDR_HI_UNION.DW_2_DATA),      MEMBER(SRC_PARAMETER_1_UNION.DW_3_DATA),
        MEMBER(SRC_PARAMETER_2_UNION.DW_4_DATA),  MEMBER(SRC_PARAMETER_3_UNION.DW_5_DATA),
        MEMBER(DST_ADDR_LO_UNION.DW_6_DATA),      MEMBER(DST_ADDR_HI_UNION.DW_7_DATA),
        MEMBER(DST_PARAMETER_1_UNION.DW_8_DATA),  MEMBER(DST_PARAMETER_2_UNION.DW_9_DATA),
        MEMBER(DST_PARAMETER_3_UNION.DW_10_DATA), MEMBER(RECT_PARAMETER_1_UNION.DW_11_DATA),
        MEMBER(RECT_PARAMETER_2_UNION.DW_12_DATA)};
  }
};

struct Fence : Layout<SDMA_PKT_FENCE> {
  static constexpr char kName[] = "Fence";

  Fence() {
    words = {0x00000005, 0, 0, 0};
    lines = {"op: FENCE (5)\n", "subop: 0\n",     "mtype: 0\n",     "gcc: 0\n",
             "sys: 0\n",        "pad1: 0\n",      "snp: 0\n",       "gpa: 0\n",
             "l2_policy: 0\n",  "addr_lo: 0X0\n", "addr_hi: 0X0\n", "data: 0\n"};
    fields = {
        {0, 7, 0, MEMBER(HEADER_UNION.op), nullptr},
        {0, 15, 8, MEMBER(HEADER_UNION.sub_op), "subop: 255\n"},
        {0, 18, 16, MEMBER(HEADER_UNION.mtype), "mtype: 7\n"},
        {0, 19, 19, MEMBER(HEADER_UNION.gcc), "gcc: 1\n"},
        {0, 20, 20, MEMBER(HEADER_UNION.sys), "sys: 1\n"},
        {0, 21, 21, MEMBER(HEADER_UNION.pad1), "pad1: 1\n"},
        {0, 22, 22, MEMBER(HEADER_UNION.snp), "snp: 1\n"},
        {0, 23, 23, MEMBER(HEADER_UNION.gpa), "gpa: 1\n"},
        {0, 25, 24, MEMBER(HEADER_UNION.l2_policy), "l2_policy: 3\n"},
        {0, 31, 26, MEMBER(HEADER_UNION.reserved_0), ""},
        {1, 31, 0, MEMBER(ADDR_LO_UNION.addr_31_0), "addr_lo: 0XFFFFFFFF\n"},
        {2, 31, 0, MEMBER(ADDR_HI_UNION.addr_63_32), "addr_hi: 0XFFFFFFFF\n"},
        {3, 31, 0, MEMBER(DATA_UNION.data), "data: -1\n"},
    };
    whole_words = {MEMBER(HEADER_UNION.DW_0_DATA), MEMBER(ADDR_LO_UNION.DW_1_DATA),
                   MEMBER(ADDR_HI_UNION.DW_2_DATA), MEMBER(DATA_UNION.DW_3_DATA)};
  }
};

struct Trap : Layout<SDMA_PKT_TRAP> {
  static constexpr char kName[] = "Trap";

  Trap() {
    words = {0x00000006, 0};
    lines = {"op: TRAP (6)\n", "subop: 0\n", "int_ctx: 0\n"};
    fields = {
        {0, 7, 0, MEMBER(HEADER_UNION.op), nullptr},
        {0, 15, 8, MEMBER(HEADER_UNION.sub_op), "subop: 255\n"},
        {0, 31, 16, MEMBER(HEADER_UNION.reserved_0), ""},
        {1, 27, 0, MEMBER(INT_CONTEXT_UNION.int_ctx), "int_ctx: 268435455\n"},
        {1, 31, 28, MEMBER(INT_CONTEXT_UNION.reserved_1), ""},
    };
    whole_words = {MEMBER(HEADER_UNION.DW_0_DATA), MEMBER(INT_CONTEXT_UNION.DW_1_DATA)};
  }
};

struct PollRegmem : Layout<SDMA_PKT_POLL_REGMEM> {
  static constexpr char kName[] = "PollRegmem";

  PollRegmem() {
    words = {0x00000008, 0, 0, 0, 0, 0};
    lines = {
        "op: POLL REGMEM (8)\n", "subop: 0\n",     "hdp_flush: 0\n", "func: 0\n", "mem_poll: 0\n",
        "addr_lo: 0X0\n",        "addr_hi: 0X0\n", "value: 0\n",     "mask: 0\n", "interval: 0\n",
        "retry_count: 0\n"};
    fields = {
        {0, 7, 0, MEMBER(HEADER_UNION.op), nullptr},
        {0, 15, 8, MEMBER(HEADER_UNION.sub_op), "subop: 255\n"},
        {0, 25, 16, MEMBER(HEADER_UNION.reserved_0), ""},
        {0, 26, 26, MEMBER(HEADER_UNION.hdp_flush), "hdp_flush: 1\n"},
        {0, 27, 27, MEMBER(HEADER_UNION.reserved_1), ""},
        {0, 30, 28, MEMBER(HEADER_UNION.func), "func: 7\n"},
        {0, 31, 31, MEMBER(HEADER_UNION.mem_poll), "mem_poll: 1\n"},
        {1, 31, 0, MEMBER(ADDR_LO_UNION.addr_31_0), "addr_lo: 0XFFFFFFFF\n"},
        {2, 31, 0, MEMBER(ADDR_HI_UNION.addr_63_32), "addr_hi: 0XFFFFFFFF\n"},
        {3, 31, 0, MEMBER(VALUE_UNION.value), "value: -1\n"},
        {4, 31, 0, MEMBER(MASK_UNION.mask), "mask: -1\n"},
        {5, 15, 0, MEMBER(DW5_UNION.interval), "interval: 65535\n"},
        {5, 27, 16, MEMBER(DW5_UNION.retry_count), "retry_count: 4095\n"},
        {5, 31, 28, MEMBER(DW5_UNION.reserved_0), ""},
    };
    whole_words = {MEMBER(HEADER_UNION.DW_0_DATA),  MEMBER(ADDR_LO_UNION.DW_1_DATA),
                   MEMBER(ADDR_HI_UNION.DW_2_DATA), MEMBER(VALUE_UNION.DW_3_DATA),
                   MEMBER(MASK_UNION.DW_4_DATA),    MEMBER(DW5_UNION.DW_5_DATA)};
  }
};

struct Atomic : Layout<SDMA_PKT_ATOMIC> {
  static constexpr char kName[] = "Atomic";

  Atomic() {
    words = {0x0000000A, 0, 0, 0, 0, 0, 0, 0};
    lines = {"op: ATOMIC (10)\n",  "subop: 0\n",         "l: 0\n",
             "operation: 0\n",     "addr_lo: 0X0\n",     "addr_hi: 0X0\n",
             "src_data_lo: 0X0\n", "src_data_hi: 0X0\n", "cmp_data_lo: 0\n",
             "cmp_data_hi: 0\n",   "loop_interval: 0\n"};
    fields = {
        {0, 7, 0, MEMBER(HEADER_UNION.op), nullptr},
        {0, 15, 8, MEMBER(HEADER_UNION.sub_op), "subop: 255\n"},
        {0, 16, 16, MEMBER(HEADER_UNION.l), "l: 1\n"},
        {0, 24, 17, MEMBER(HEADER_UNION.reserved_0), ""},
        {0, 31, 25, MEMBER(HEADER_UNION.operation), "operation: 127\n"},
        {1, 31, 0, MEMBER(ADDR_LO_UNION.addr_31_0), "addr_lo: 0XFFFFFFFF\n"},
        {2, 31, 0, MEMBER(ADDR_HI_UNION.addr_63_32), "addr_hi: 0XFFFFFFFF\n"},
        {3, 31, 0, MEMBER(SRC_DATA_LO_UNION.src_data_31_0), "src_data_lo: 0XFFFFFFFF\n"},
        {4, 31, 0, MEMBER(SRC_DATA_HI_UNION.src_data_63_32), "src_data_hi: 0XFFFFFFFF\n"},
        {5, 31, 0, MEMBER(CMP_DATA_LO_UNION.cmp_data_31_0), "cmp_data_lo: -1\n"},
        {6, 31, 0, MEMBER(CMP_DATA_HI_UNION.cmp_data_63_32), "cmp_data_hi: -1\n"},
        {7, 12, 0, MEMBER(LOOP_UNION.loop_interval), "loop_interval: 8191\n"},
        {7, 31, 13, MEMBER(LOOP_UNION.reserved_0), ""},
    };
    whole_words = {MEMBER(HEADER_UNION.DW_0_DATA),      MEMBER(ADDR_LO_UNION.DW_1_DATA),
                   MEMBER(ADDR_HI_UNION.DW_2_DATA),     MEMBER(SRC_DATA_LO_UNION.DW_3_DATA),
                   MEMBER(SRC_DATA_HI_UNION.DW_4_DATA), MEMBER(CMP_DATA_LO_UNION.DW_5_DATA),
                   MEMBER(CMP_DATA_HI_UNION.DW_6_DATA), MEMBER(LOOP_UNION.DW_7_DATA)};
  }
};

struct ConstantFill : Layout<SDMA_PKT_CONSTANT_FILL> {
  static constexpr char kName[] = "ConstantFill";

  ConstantFill() {
    words = {0x0000000B, 0, 0, 0, 0};
    lines = {"op: CONST FILL (11)\n", "subop: 0\n",         "sw: 0\n",   "fillsize: 0\n",
             "dst_addr_lo: 0X0\n",    "dst_addr_hi: 0X0\n", "data: 0\n", "count: 0\n"};
    fields = {
        {0, 7, 0, MEMBER(HEADER_UNION.op), nullptr},
        {0, 15, 8, MEMBER(HEADER_UNION.sub_op), "subop: 255\n"},
        {0, 17, 16, MEMBER(HEADER_UNION.sw), "sw: 3\n"},
        {0, 29, 18, MEMBER(HEADER_UNION.reserved_0), ""},
        {0, 31, 30, MEMBER(HEADER_UNION.fillsize), "fillsize: 3\n"},
        {1, 31, 0, MEMBER(DST_ADDR_LO_UNION.dst_addr_31_0), "dst_addr_lo: 0XFFFFFFFF\n"},
        {2, 31, 0, MEMBER(DST_ADDR_HI_UNION.dst_addr_63_32), "dst_addr_hi: 0XFFFFFFFF\n"},
        {3, 31, 0, MEMBER(DATA_UNION.src_data_31_0), "data: -1\n"},
        {4, 21, 0, MEMBER(COUNT_UNION.count), "count: 4194303\n"},
        {4, 31, 22, MEMBER(COUNT_UNION.reserved_0), ""},
    };
    whole_words = {MEMBER(HEADER_UNION.DW_0_DATA), MEMBER(DST_ADDR_LO_UNION.DW_1_DATA),
                   MEMBER(DST_ADDR_HI_UNION.DW_2_DATA), MEMBER(DATA_UNION.DW_3_DATA),
                   MEMBER(COUNT_UNION.DW_4_DATA)};
  }
};

struct Timestamp : Layout<SDMA_PKT_TIMESTAMP> {
  static constexpr char kName[] = "Timestamp";

  Timestamp() {
    words = {0x0000000D, 0, 0};
    lines = {"op: TIMESTAMP (13)\n", "subop: 0\n", "addr_lo: 0X0\n", "addr_hi: 0X0\n"};
    fields = {
        {0, 7, 0, MEMBER(HEADER_UNION.op), nullptr},
        {0, 15, 8, MEMBER(HEADER_UNION.sub_op), "subop: 255\n"},
        {0, 31, 16, MEMBER(HEADER_UNION.reserved_0), ""},
        {1, 31, 0, MEMBER(ADDR_LO_UNION.addr_31_0), "addr_lo: 0XFFFFFFFF\n"},
        {2, 31, 0, MEMBER(ADDR_HI_UNION.addr_63_32), "addr_hi: 0XFFFFFFFF\n"},
    };
    whole_words = {MEMBER(HEADER_UNION.DW_0_DATA), MEMBER(ADDR_LO_UNION.DW_1_DATA),
                   MEMBER(ADDR_HI_UNION.DW_2_DATA)};
  }
};

uint32_t Mask(int high, int low) {
  return static_cast<uint32_t>((uint64_t{1} << (high - low + 1)) - 1) << low;
}

template <typename Packet>
Packet FromWords(const Words& words) {
  Packet packet;
  EXPECT_EQ(sizeof(packet), 4 * words.size());
  memcpy(&packet, words.data(), sizeof(packet));
  return packet;
}

std::string Label(std::string_view line) { return std::string(line.substr(0, line.find(':') + 1)); }

// The text of a ring that holds one packet with these lines.
std::string Report(const std::vector<std::string>& lines) {
  std::string report = "packet sub index: 0\n";
  for (const std::string& line : lines) {
    report += line;
  }
  return report + "\n\n";
}

template <typename T>
class SdmaLayoutTest : public testing::Test {
 protected:
  using Packet = typename T::Packet;

  const T layout_;
};

struct LayoutNames {
  template <typename T>
  static std::string GetName(int) {
    return T::kName;
  }
};

using Layouts = testing::Types<CopyLinear, CopyLinearRect, Fence, Trap, PollRegmem, Atomic,
                               ConstantFill, Timestamp>;
TYPED_TEST_SUITE(SdmaLayoutTest, Layouts, LayoutNames);

TYPED_TEST(SdmaLayoutTest, SizeIsThatOfItsWords) {
  EXPECT_EQ(sizeof(typename TestFixture::Packet), 4 * this->layout_.words.size());
}

// Every bit is set in turn in a packet of zeros, so that the rows above leave none out.
TYPED_TEST(SdmaLayoutTest, EveryBitIsInOneField) {
  const auto& layout = this->layout_;
  for (size_t word = 0; word < layout.words.size(); ++word) {
    for (int bit = 0; bit < 32; ++bit) {
      Words words(layout.words.size());
      words[word] = uint32_t{1} << bit;
      const auto packet = FromWords<typename TestFixture::Packet>(words);
      int set = 0;
      for (const auto& field : layout.fields) {
        set += field.get(packet) != 0 ? 1 : 0;
      }
      EXPECT_EQ(set, 1) << "bit " << bit << " of word " << word;
    }
  }
}

TYPED_TEST(SdmaLayoutTest, EveryFieldHasItsBits) {
  const auto& layout = this->layout_;
  for (const auto& field : layout.fields) {
    Words words(layout.words.size());
    words[field.word] = Mask(field.high, field.low);
    const auto packet = FromWords<typename TestFixture::Packet>(words);
    for (const auto& other : layout.fields) {
      const bool same = &other == &field;
      EXPECT_EQ(other.get(packet), same ? Mask(field.high - field.low, 0) : 0)
          << "bits " << field.high << ".." << field.low << " of word " << field.word;
    }
  }
}

TYPED_TEST(SdmaLayoutTest, WordsAreSeenWhole) {
  const auto& layout = this->layout_;
  Words words;
  for (uint32_t i = 0; i < layout.words.size(); ++i) {
    words.push_back(0x8F000001 + 0x010000 * i);
  }
  const auto packet = FromWords<typename TestFixture::Packet>(words);
  ASSERT_EQ(layout.whole_words.size(), words.size());
  for (size_t i = 0; i < words.size(); ++i) {
    EXPECT_EQ(layout.whole_words[i](packet), words[i]) << "word " << i;
  }
}

TYPED_TEST(SdmaLayoutTest, OfZerosIsShownWhole) {
  EXPECT_EQ(Describe(this->layout_.words), Report(this->layout_.lines));
}

// All ones in one field show in its line only; in a reserved field they show nowhere.
TYPED_TEST(SdmaLayoutTest, EveryFieldShowsItsBitsOnly) {
  const auto& layout = this->layout_;
  for (const auto& field : layout.fields) {
    if (field.line == nullptr) {
      continue;
    }
    Words words = layout.words;
    words[field.word] |= Mask(field.high, field.low);
    std::vector<std::string> lines = layout.lines;
    size_t changed = 0;
    for (std::string& line : lines) {
      if (Label(line) == Label(field.line)) {
        line = field.line;
        ++changed;
      }
    }
    EXPECT_EQ(changed, *field.line == '\0' ? 0u : 1u);
    EXPECT_EQ(Describe(words), Report(lines))
        << "bits " << field.high << ".." << field.low << " of word " << field.word;
  }
}

TYPED_TEST(SdmaLayoutTest, TheNextPacketBeginsBehindIt) {
  Words words = this->layout_.words;
  words.push_back(0x00000006);
  words.push_back(0x00000007);
  std::string expected = Report(this->layout_.lines);
  expected.pop_back();
  EXPECT_EQ(Describe(words), expected +
                                 "packet sub index: 1\n"
                                 "op: TRAP (6)\n"
                                 "subop: 0\n"
                                 "int_ctx: 7\n"
                                 "\n"
                                 "\n");
}

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
  EXPECT_EQ(DescribeBytes(sample::Dwords({6, 7, 6, 8}), 4),
            "packet sub index: 0\n"
            "op: TRAP (6)\n"
            "subop: 0\n"
            "int_ctx: 7\n"
            "\n"
            "\n");
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
  const std::string bytes = "x" + sample::Dwords({6, 7});
  CoreDumpInfo analyser;
  std::string info;
  EXPECT_TRUE(analyser.GenSdmaPacketInfo(reinterpret_cast<uint64_t>(bytes.data() + 1), 8, info));
  EXPECT_EQ(info,
            "packet sub index: 0\n"
            "op: TRAP (6)\n"
            "subop: 0\n"
            "int_ctx: 7\n"
            "\n"
            "\n");
}

// ---------------------------------------------------------------------------------------------
// Queues

class SdmaRingTest : public testing::Test {
 protected:
  SdmaRingTest() {
    analyser_.dump_queue_dir_ = dir_.Path("queues");
    queue_.queue_id = 5;
    queue_.queue_type = 1;
  }

  void SetRing(const std::string& ring) {
    memory_ = std::vector<char>(ring.begin(), ring.end());
    queue_.ring_offset = reinterpret_cast<uint64_t>(memory_.data());
    queue_.ring_size = ring.size();
  }

  std::string Packets() const { return ReadText(save_dir_ + "/packets"); }
  std::string Ring() const { return ReadText(save_dir_ + "/sdma_rb"); }

  TempDir dir_;
  const std::string save_dir_ = dir_.Path("queues/5");
  CoreDumpInfo analyser_;
  std::vector<char> memory_;
  CoreDumpQueue queue_ = {};
};

constexpr char kTrapText[] =
    "packet sub index: 0\n"
    "op: TRAP (6)\n"
    "subop: 0\n"
    "int_ctx: 7\n"
    "\n"
    "\n";

TEST_F(SdmaRingTest, IsDescribedAndCopied) {
  const std::string ring = sample::Dwords({6, 7});
  SetRing(ring);
  OutputCapture capture;
  EXPECT_TRUE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(Packets(), kTrapText);
  EXPECT_EQ(Ring(), ring);
  EXPECT_EQ(ListTree(dir_.Path()),
            (Names{"queues/", "queues/5/", "queues/5/packets", "queues/5/sdma_rb"}));
}

TEST_F(SdmaRingTest, ReadAndWritePointersAreNotLookedAt) {
  SetRing(sample::Dwords({6, 7}));
  queue_.rptr_value = 100;
  queue_.wptr_value = 100;
  EXPECT_TRUE(analyser_.dumpSdmaPacket(&queue_));
  EXPECT_EQ(Packets(), kTrapText);
}

TEST_F(SdmaRingTest, ASecondRunAppendsThePacketsAndReplacesTheRing) {
  SetRing(sample::Dwords({6, 7}));
  EXPECT_TRUE(analyser_.dumpSdmaPacket(&queue_));
  SetRing(sample::Dwords({0}));
  EXPECT_TRUE(analyser_.dumpSdmaPacket(&queue_));
  EXPECT_EQ(Packets(), std::string(kTrapText) +
                           "packet sub index: 0\n"
                           "Invalid sdma packet\n"
                           "\n");
  EXPECT_EQ(Ring(), sample::Dwords({0}));
}

TEST_F(SdmaRingTest, OfASizeThatIsNoMultipleOfAWordIsCopiedWhole) {
  const std::string ring = sample::Dwords({0}) + std::string(2, '\0');
  SetRing(ring);
  memory_.resize(8);  // what lies behind the ring
  queue_.ring_offset = reinterpret_cast<uint64_t>(memory_.data());
  EXPECT_TRUE(analyser_.dumpSdmaPacket(&queue_));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "Invalid sdma packet\n"
            "packet sub index: 1\n"
            "Invalid sdma packet\n"
            "\n");
  EXPECT_EQ(Ring(), ring);
}

TEST_F(SdmaRingTest, EmptyHasNoRawCopy) {
  SetRing(sample::Dwords({6, 7}));
  queue_.ring_size = 0;
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: dump sdma packet failed\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(ListTree(save_dir_), Names{"packets"});
  EXPECT_EQ(Packets(), "\n");
}

TEST_F(SdmaRingTest, PacketsThatCannotBeWrittenEndTheDump) {
  SetRing(sample::Dwords({6, 7}));
  fs::create_directories(save_dir_ + "/packets");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.err), "[time] Error: dump sdma packet failed\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(ListTree(save_dir_), Names{"packets/"});
}

TEST_F(SdmaRingTest, ARingThatCannotBeWrittenFailsTheDump) {
  SetRing(sample::Dwords({6, 7}));
  fs::create_directories(save_dir_ + "/sdma_rb");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.DumpPacket(&queue_));
  EXPECT_EQ(WithoutTimes(capture.Stop().err), "[time] Error: dump sdma packet failed\n");
  EXPECT_EQ(Packets(), kTrapText);
}

TEST_F(SdmaRingTest, OnlyDumpPacketSaysThatItFailed) {
  SetRing(sample::Dwords({6, 7}));
  fs::create_directories(save_dir_ + "/packets");
  OutputCapture capture;
  EXPECT_FALSE(analyser_.dumpSdmaPacket(&queue_));
  EXPECT_EQ(capture.Stop().err, "");
}

TEST_F(SdmaRingTest, TheDirectoryHasTheUnsignedIdAndTheDebugLogTheSignedOne) {
  SetRing(sample::Dwords({6, 7}));
  queue_.queue_id = 0xFFFFFFFF;
  const ScopedLogLevel level("debug");
  OutputCapture capture;
  EXPECT_TRUE(analyser_.DumpPacket(&queue_));
  const Output output = capture.Stop();
  EXPECT_EQ(WithoutTimes(output.out), "[time] Debug: dumpSdmaPacket queu id: -1\n");
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(ListTree(dir_.Path("queues")),
            (Names{"4294967295/", "4294967295/packets", "4294967295/sdma_rb"}));
}

// ---------------------------------------------------------------------------------------------
// Rings at the end of a core file

class SdmaCoreFileTest : public testing::Test {
 protected:
  // A file of back-to-back regions that ends with the rings.
  static sample::CoreFile FileWithRings(const std::vector<std::string>& rings) {
    sample::CoreFile file;
    file.queues.resize(rings.size());
    for (size_t i = 0; i < rings.size(); ++i) {
      file.queues[i].queue_id = static_cast<uint32_t>(i);
      file.queues[i].queue_type = 1;
      file.queues[i].ring = rings[i];
    }
    using sample::Region;
    file.layout.order = {Region::kReason,      Region::kAgents,  Region::kQueues, Region::kContexts,
                         Region::kCodeObjects, Region::kKernels, Region::kElfs,   Region::kWaves,
                         Region::kEnvironment, Region::kRings};
    file.layout.alignment = 1;
    return file;
  }

  void OverrideRingSize(sample::CoreFile& file, uint64_t size) {
    file.overrides = {{.record = sample::Override::Record::kQueue, .offset = 64, .value = size}};
  }

  // Loads the file and dumps its first queue; keeps what was said of it.
  void Dump(const sample::CoreFile& file) {
    const std::string bytes = sample::CoreFileBytes(file);
    file_.assign(bytes.begin(), bytes.end());
    analyser_.SetImageSize(file_.size());
    OutputCapture capture;
    EXPECT_TRUE(analyser_.init(reinterpret_cast<uint64_t>(file_.data()), out_.c_str(), "/opt/rocm",
                               dir_.Path("mems").c_str(), false));
    EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
    err_ = capture.Stop().err;
  }

  std::string Packets() const { return ReadText(out_ + "/queues/0/packets"); }
  std::string Ring() const { return ReadText(out_ + "/queues/0/sdma_rb"); }

  TempDir dir_;
  const std::string out_ = dir_.Path("out");
  std::vector<char> file_;  // just as long as the file, so that a sanitizer sees what is beyond
  CoreDumpInfo analyser_;
  std::string err_;
};

TEST_F(SdmaCoreFileTest, ALastPacketIsReadOnIntoTheFile) {
  Dump(FileWithRings({sample::Dwords({6}), sample::Dwords({0x01234567, 0x89ABCDEF})}));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "op: TRAP (6)\n"
            "subop: 0\n"
            "int_ctx: 19088743\n"
            "\n"
            "\n");
  EXPECT_EQ(Ring(), sample::Dwords({6}));
  EXPECT_EQ(err_, "");
}

TEST_F(SdmaCoreFileTest, BehindTheEndOfTheFileALastPacketReadsAsZero) {
  Dump(FileWithRings({sample::Dwords({0xFFFFFF08, 0x11111111, 0x22222222})}));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "op: POLL REGMEM (8)\n"
            "subop: 255\n"
            "hdp_flush: 1\n"
            "func: 7\n"
            "mem_poll: 1\n"
            "addr_lo: 0X11111111\n"
            "addr_hi: 0X22222222\n"
            "value: 0\n"
            "mask: 0\n"
            "interval: 0\n"
            "retry_count: 0\n"
            "\n"
            "\n");
  EXPECT_EQ(Ring(), sample::Dwords({0xFFFFFF08, 0x11111111, 0x22222222}));
  EXPECT_EQ(err_, "");
}

TEST_F(SdmaCoreFileTest, AWordThatTheEndOfTheFileCutsReadsAsZeroFromThere) {
  Dump(FileWithRings({sample::Dwords({6}) + "\xEF\xCD\xAB"}));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "op: TRAP (6)\n"
            "subop: 0\n"
            "int_ctx: 11259375\n"
            "\n"
            "\n");
  EXPECT_EQ(Ring(), sample::Dwords({6}) + "\xEF\xCD\xAB");
}

TEST_F(SdmaCoreFileTest, AnOpInTheLastByteOfTheFileIsAPacket) {
  Dump(FileWithRings({sample::Dwords({0}) + "\x01"}));
  EXPECT_EQ(Packets(),
            "packet sub index: 0\n"
            "Invalid sdma packet\n"
            "packet sub index: 1\n"
            "op: COPY (1)\n"
            "subop: COPY LINEAR (0)\n"
            "extra_info: 0\n"
            "count: 0\n"
            "dst_swap: 0\n"
            "src_swap: 0\n"
            "src_addr_lo: 0X0\n"
            "src_addr_hi: 0X0\n"
            "dst_addr_lo: 0X0\n"
            "dst_addr_hi: 0X0\n"
            "\n"
            "\n");
}

TEST_F(SdmaCoreFileTest, TheLongestPacketIsReadOnWhole) {
  Words rest(12, 0);
  rest[11] = 0x03030007;
  Dump(FileWithRings({sample::Dwords({0x00000101}), sample::Dwords(rest)}));
  EXPECT_NE(Packets().find("\nrect_z: 7\n"
                           "dst_swap: 3\n"
                           "src_swap: 3\n"
                           "\n"
                           "\n"),
            std::string::npos);
}

// The size of the stream is a signed number of 32 bits; what the file has of the ring is copied.
struct RingSizeCase {
  const char* name;
  uint64_t ring_size;
  const char* packets;
};

void PrintTo(const RingSizeCase& row, std::ostream* out) { *out << row.name; }

class SdmaRingSizeTest : public SdmaCoreFileTest,
                         public testing::WithParamInterface<RingSizeCase> {};

TEST_P(SdmaRingSizeTest, IsCutToThirtyTwoBits) {
  sample::CoreFile file = FileWithRings({sample::Dwords({6, 7, 0})});
  OverrideRingSize(file, GetParam().ring_size);
  Dump(file);
  EXPECT_EQ(Packets(), GetParam().packets);
  EXPECT_EQ(Ring(), sample::Dwords({6, 7, 0}));
}

constexpr RingSizeCase kRingSizes[] = {
    {"Zero", 0x100000000, "\n"},
    {"ZeroOfALargeSize", 0xFFFFFFFF00000000, "\n"},
    {"Lowest", 0x80000000, "\n"},
    {"MinusOne", 0xFFFFFFFF, "\n"},
    {"MinusOneOfTheLargestSize", 0xFFFFFFFFFFFFFFFF, "\n"},
    {"Eight", 0x100000008, kTrapText},
};

INSTANTIATE_TEST_SUITE_P(Sizes, SdmaRingSizeTest, testing::ValuesIn(kRingSizes),
                         [](const testing::TestParamInfo<RingSizeCase>& row) {
                           return std::string(row.param.name);
                         });

}  // namespace
