// AQL rings in core files: where headers come from, sizes that lie, kernel names that name no file.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "aql_slots.h"
#include "captured_output.h"
#include "core_file_writer.h"
#include "loaded_core_file.h"
#include "row_name.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

class AqlCoreFileTest : public LoadedCoreFileTest {
 protected:
  static sample::CoreFile FileWithRing(const std::string& ring) {
    sample::CoreFile file;
    file.queues.resize(1);
    file.queues[0].queue_id = 5;
    file.queues[0].queue_type = 2;
    file.queues[0].ring = ring;
    return file;
  }

  std::string Packets() const { return ReadText(out_ + "/queues/5/packets"); }
};

TEST_F(AqlCoreFileTest, TheBackupArrayOfTheFileIsUsed) {
  sample::CoreFile file = FileWithRing(InvalidSlot() + InvalidSlot());
  file.queues[0].header_backup = {kWordLow, kBackup};
  ASSERT_TRUE(Load(file));
  EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
  EXPECT_EQ(Packets(),
            std::string("\npacket index: 0\n") + kFromWord + "\npacket index: 1\n" + kFromBackup);
}

TEST_F(AqlCoreFileTest, AnOlderFileHasItsHeadersInTheSlots) {
  sample::CoreFile file =
      FileWithRing(sample::BarrierPacket({.header = 1, .reserved2 = kWordLow}) + InvalidSlot());
  file.format = 0;
  file.queues[0].header_backup = {kBackup, kBackup};
  ASSERT_TRUE(Load(file));
  EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
  EXPECT_EQ(Packets(),
            std::string("\npacket index: 0\n") + kFromWord + "\npacket index: 1\n" + kNotRetired);
}

// The count of slots is a signed number of 32 bits; what the file has of the ring is copied.
struct SlotCountCase {
  const char* name;
  uint64_t ring_size;
  size_t slots;
};

void PrintTo(const SlotCountCase& row, std::ostream* out) { *out << row.name; }

class AqlSlotCountTest : public AqlCoreFileTest,
                         public testing::WithParamInterface<SlotCountCase> {};

TEST_P(AqlSlotCountTest, IsCutToThirtyTwoBits) {
  sample::CoreFile file = FileWithRing(EmptyBarrier() + EmptyBarrier());
  file.format = 0;
  file.overrides = {
      {.record = sample::Override::Record::kQueue, .offset = 64, .value = GetParam().ring_size}};
  ASSERT_TRUE(Load(file));
  OutputCapture capture;
  EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
  capture.Stop();
  std::string expected;
  for (size_t i = 0; i < GetParam().slots; ++i) {
    expected += "\npacket index: " + std::to_string(i) + "\n" + kEmptyBarrierText;
  }
  EXPECT_EQ(Packets(), expected);
  EXPECT_EQ(ReadText(out_ + "/queues/5/aql_rb"), EmptyBarrier() + EmptyBarrier());
}

constexpr SlotCountCase kSlotCounts[] = {
    {"Zero", 0x4000000000, 0},     {"One", 0x4000000040, 1},
    {"Two", 0x4000000080, 2},      {"Lowest", 0x2000000000, 0},
    {"MinusOne", 0x3FFFFFFFC0, 0}, {"MinusOneOfLargestSize", 0xFFFFFFFFFFFFFFFF, 0},
};

INSTANTIATE_TEST_SUITE_P(Sizes, AqlSlotCountTest, testing::ValuesIn(kSlotCounts),
                         RowName<SlotCountCase>);

// ---------------------------------------------------------------------------------------------
// Kernel names that are no file names

class AqlKernelNameTest : public AqlCoreFileTest {
 protected:
  // Dumps a ring with one dispatch, with readable arguments, of a kernel of that name.
  void Dump(const std::string& kernel_name) {
    sample::KernelDispatch packet;
    packet.header = 2;
    packet.kernel_object = 0x1000;
    packet.kernarg_address = 0x200000;
    sample::CoreFile file = FileWithRing(sample::KernelDispatchPacket(packet));
    file.queues[0].header_backup = {0};
    file.code_objects.resize(1);
    file.code_objects[0].elf = "elf";
    file.code_objects[0].kernels = {{0x1000, kernel_name}};
    ASSERT_TRUE(
        sample::WriteMemoryDirectory({{.addr = 0x200000, .bytes = "args"}}, dir_.Path("mems")));
    ASSERT_TRUE(Load(file));
    OutputCapture capture;
    EXPECT_TRUE(analyser_.DumpPacket(analyser_.queue_lists.at(0)));
    err_ = WithoutTimes(capture.Stop().err);
  }

  // The dump went on, the loss was noted, and no file was written but those of the ring.
  void ExpectNoFile(const std::string& kernel_name, const std::string& shown_name) {
    Dump(kernel_name);
    EXPECT_NE(Packets().find("\nkernel_name: " + kernel_name + "\nobject_name: code_object_"),
              std::string::npos);
    const std::string damage = ReadText(out_ + "/damage");
    EXPECT_EQ(damage.rfind("kernel name \"" + shown_name + "\" ", 0), 0u) << damage;
    EXPECT_EQ(damage.find('\n'), damage.size() - 1) << damage;
    EXPECT_EQ(err_, "[time] Error: damaged core file: " + damage);
    EXPECT_EQ(ListTree(out_ + "/queues"), (Names{"5/", "5/aql_rb", "5/packets"}));
    const std::string object = analyser_.code_object_lists.at(0)->name;
    EXPECT_EQ(ListTree(dir_.Path()),
              (Names{"mems/", "mems/0X200000-0X200004-4", "mems/process_mem_info", "out/",
                     "out/codes/", "out/codes/" + object, "out/codes/" + object + ".info",
                     "out/damage", "out/environment", "out/queues/", "out/queues/5/",
                     "out/queues/5/aql_rb", "out/queues/5/packets"}));
  }

  std::string err_;
};

TEST_F(AqlKernelNameTest, PathUpwards) { ExpectNoFile("../../evil", "../../evil"); }

TEST_F(AqlKernelNameTest, PathDownwards) { ExpectNoFile("a/b", "a/b"); }

TEST_F(AqlKernelNameTest, AbsolutePath) { ExpectNoFile("/tmp/evil", "/tmp/evil"); }

TEST_F(AqlKernelNameTest, TrailingSlash) { ExpectNoFile("copy/", "copy/"); }

TEST_F(AqlKernelNameTest, Dot) { ExpectNoFile(".", "."); }

TEST_F(AqlKernelNameTest, DotDot) { ExpectNoFile("..", ".."); }

TEST_F(AqlKernelNameTest, Empty) { ExpectNoFile("", ""); }

TEST_F(AqlKernelNameTest, LongerThanAFileName) {
  ExpectNoFile(std::string(251, 'k'), std::string(100, 'k') + "...");
}

TEST_F(AqlKernelNameTest, OfFullLengthWithoutTerminator) {
  ExpectNoFile(std::string(1024, 'k'), std::string(100, 'k') + "...");
}

TEST_F(AqlKernelNameTest, UnprintableBytesAreNotShownInMessages) {
  ExpectNoFile("a/\n\x1B\xFF~", "a/???~");
}

TEST_F(AqlKernelNameTest, AsLongAsAFileNameIsWritten) {
  const std::string name(250, 'k');
  Dump(name);
  EXPECT_EQ(err_, "");
  EXPECT_EQ(ReadText(out_ + "/queues/5/" + name + "_args"), "args");
  EXPECT_FALSE(fs::exists(out_ + "/damage"));
}

TEST_F(AqlKernelNameTest, DotsInsideAreWritten) {
  Dump("..copy.kd");
  EXPECT_EQ(err_, "");
  EXPECT_EQ(ReadText(out_ + "/queues/5/..copy.kd_args"), "args");
  EXPECT_FALSE(fs::exists(out_ + "/damage"));
}

}  // namespace
