// What goes with the kernel dispatches of a ring: the kernel's name and the file of its arguments.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "aql_packet_fixture.h"
#include "aql_slots.h"
#include "captured_output.h"
#include "core_file_writer.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

// ---------------------------------------------------------------------------------------------
// Kernels of dispatches

TEST_F(AqlPacketTest, AKnownKernelIsNamedWithItsCodeObject) {
  AddKernel("code_object_3", 0x7F0000000FFF, "other");
  AddKernel("code_object_7", 0x7F0000001000, "copy");
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(FullDispatch())),
            std::string(kFullDispatchText) +
                "kernel_name: copy\n"
                "object_name: code_object_7\n");
  EXPECT_EQ(ListTree(dir_.Path()), Names{});
}

TEST_F(AqlPacketTest, OfTwoKernelsAtOneAddressTheFirstIsNamed) {
  AddKernel("code_object_3", 0x7F0000001000, "copy");
  AddKernel("code_object_7", 0x7F0000001000, "scale");
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(FullDispatch())),
            std::string(kFullDispatchText) +
                "kernel_name: copy\n"
                "object_name: code_object_3\n");
}

TEST_F(AqlPacketTest, AnUnknownKernelHasNoName) {
  AddKernel("code_object_7", 0x7F0000001008, "copy");
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(FullDispatch())), kFullDispatchText);
}

TEST_F(AqlPacketTest, AKernelNameWithoutTerminatorEndsAtItsSize) {
  const std::string name(1024, 'k');
  AddKernel("code_object_7", 0x7F0000001000, name);
  EXPECT_EQ(Describe(sample::KernelDispatchPacket(FullDispatch())),
            std::string(kFullDispatchText) + "kernel_name: " + name +
                "\n"
                "object_name: code_object_7\n");
}

TEST_F(AqlPacketTest, OtherPacketsNameNoKernel) {
  AddKernel("code_object_7", 0, "copy");
  EXPECT_EQ(Describe(EmptyBarrier()), kEmptyBarrierText);
}

// ---------------------------------------------------------------------------------------------
// Kernel arguments

// A text of `size` characters in which no part looks like another.
std::string Arguments(size_t size) {
  std::string text;
  for (int i = 0; text.size() < size; ++i) {
    text += std::to_string(i) + ",";
  }
  text.resize(size);
  return text;
}

class AqlArgumentsTest : public AqlPacketTest {
 protected:
  static constexpr uint64_t kKernel = 0x1000;

  AqlArgumentsTest() { AddKernel("code_object_7", kKernel, "copy"); }

  std::string DescribeDispatch(uint64_t kernarg_address, uint64_t kernel = kKernel) {
    sample::KernelDispatch packet;
    packet.header = 2;
    packet.kernel_object = kernel;
    packet.kernarg_address = kernarg_address;
    return Describe(sample::KernelDispatchPacket(packet));
  }

  // What lies in the queue's directory.
  Names Files() const { return fs::exists(save_dir_) ? ListTree(save_dir_) : Names{}; }
};

TEST_F(AqlArgumentsTest, AreFourKilobytes) {
  const std::string bytes = Arguments(5000);
  LoadMemory({{.addr = 0x200000, .bytes = bytes}});
  DescribeDispatch(0x200010);
  EXPECT_EQ(Files(), Names{"copy_args"});
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), bytes.substr(16, 4096));
}

TEST_F(AqlArgumentsTest, EndWithTheirRegion) {
  const std::string bytes = Arguments(5000);
  LoadMemory(
      {{.addr = 0x200000, .bytes = bytes}, {.addr = 0x200000 + 5000, .bytes = Arguments(100)}});
  DescribeDispatch(0x200000 + 5000 - 16);
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), bytes.substr(5000 - 16));
}

TEST_F(AqlArgumentsTest, OutsideEveryRegionAreLeftOut) {
  LoadMemory({{.addr = 0x200000, .bytes = Arguments(5000)}});
  OutputCapture capture;
  EXPECT_EQ(DescribeDispatch(0x200000 + 5000),
            "header format: KERNEL_DISPATCH\n"
            "header barrier: 0\n"
            "header acquire_fence_scope: SCOPE_NONE\n"
            "header release_fence_scope: SCOPE_NONE\n"
            "dimensions: 0\n"
            "workgroup_size_x: 0\n"
            "workgroup_size_y: 0\n"
            "workgroup_size_z: 0\n"
            "grid_size_x: 0\n"
            "grid_size_y: 0\n"
            "grid_size_z: 0\n"
            "private_segment_size_bytes: 0\n"
            "group_segment_size_bytes : 0\n"
            "kernel_object: 0X1000\n"
            "kernarg_address: 0X201388\n"
            "completion_signal: 0X0\n"
            "kernel_name: copy\n"
            "object_name: code_object_7\n");
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_EQ(Files(), Names{});
}

TEST_F(AqlArgumentsTest, AtTheNullAddressAreLeftOut) {
  LoadMemory({{.addr = 0x200000, .bytes = Arguments(5000)}});
  const std::string text = DescribeDispatch(0);
  EXPECT_NE(text.find("\nkernarg_address: 0X0\n"), std::string::npos);
  EXPECT_NE(text.find("\nkernel_name: copy\n"), std::string::npos);
  EXPECT_EQ(Files(), Names{});
}

TEST_F(AqlArgumentsTest, OfAnUnknownKernelAreLeftOut) {
  LoadMemory({{.addr = 0x200000, .bytes = Arguments(5000)}});
  DescribeDispatch(0x200000, kKernel + 1);
  EXPECT_EQ(Files(), Names{});
}

TEST_F(AqlArgumentsTest, WithoutTheirSnapshotAreLeftOutWithAnError) {
  LoadMemory({{.addr = 0x200000, .bytes = "args"}});
  const std::string snapshot = dir_.Path("mems/0X200000-0X200004-4");
  ASSERT_TRUE(fs::remove(snapshot));
  OutputCapture capture;
  const std::string text = DescribeDispatch(0x200000);
  EXPECT_EQ(WithoutTimes(capture.Stop().err), "[time] Error: mem_name:" + snapshot + " failed\n");
  EXPECT_NE(text.find("\nkernel_name: copy\nobject_name: code_object_7\n"), std::string::npos);
  EXPECT_EQ(Files(), Names{});
}

TEST_F(AqlArgumentsTest, OfARetiredDispatchAreWritten) {
  LoadMemory({{.addr = 0x200000, .bytes = "args"}});
  analyser_.full_version = kFirstWithBackup;
  sample::KernelDispatch packet;
  packet.header = 1;
  packet.kernel_object = kKernel;
  packet.kernarg_address = 0x200000;
  Describe(sample::KernelDispatchPacket(packet), 2);
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "args");
}

TEST_F(AqlArgumentsTest, OfALaterDispatchReplaceThoseOfAnEarlierOne) {
  LoadMemory({{.addr = 0x200000, .bytes = "the arguments of the first"},
              {.addr = 0x300000, .bytes = "of the second"}});
  DescribeDispatch(0x200000);
  DescribeDispatch(0x300000);
  EXPECT_EQ(Files(), Names{"copy_args"});
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "of the second");
}

TEST_F(AqlArgumentsTest, ThatCannotBeReadLeaveThoseOfAnEarlierDispatch) {
  LoadMemory({{.addr = 0x200000, .bytes = "the arguments of the first"}});
  DescribeDispatch(0x200000);
  DescribeDispatch(0x300000);
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "the arguments of the first");
}

TEST_F(AqlArgumentsTest, OfSeveralKernelsHaveAFileEach) {
  AddKernel("code_object_8", 0x2000, "scale(float*, int) [clone .kd]");
  LoadMemory({{.addr = 0x200000, .bytes = "first"}, {.addr = 0x300000, .bytes = "second"}});
  DescribeDispatch(0x200000);
  DescribeDispatch(0x300000, 0x2000);
  EXPECT_EQ(Files(), (Names{"copy_args", "scale(float*, int) [clone .kd]_args"}));
  EXPECT_EQ(ReadText(save_dir_ + "/copy_args"), "first");
  EXPECT_EQ(ReadText(save_dir_ + "/scale(float*, int) [clone .kd]_args"), "second");
}

TEST_F(AqlArgumentsTest, ThatCannotBeWrittenAreIgnored) {
  LoadMemory({{.addr = 0x200000, .bytes = "args"}});
  fs::create_directories(save_dir_ + "/copy_args");
  OutputCapture capture;
  const std::string text = DescribeDispatch(0x200000);
  EXPECT_EQ(capture.Stop().err, "");
  EXPECT_NE(text.find("\nkernel_name: copy\nobject_name: code_object_7\n"), std::string::npos);
  EXPECT_EQ(Files(), Names{"copy_args/"});
}

}  // namespace
