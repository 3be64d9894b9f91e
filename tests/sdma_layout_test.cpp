// The layouts of the SDMA packets: every bit of every field, and the line that shows it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "sdma_packets.h"
#include "sdma_text.h"

namespace {

using Words = std::vector<uint32_t>;

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

}  // namespace
