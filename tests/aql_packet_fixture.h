// An analyser that describes single slots of AQL rings.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core_dump_info.h"
#include "core_file_writer.h"
#include "temp_dir.h"

// An analyser that writes to a fresh directory.
class AqlPacketTest : public testing::Test {
 protected:
  AqlPacketTest() { analyser_.dump_queue_dir_ = dir_.Path("queues"); }

  // The text of one slot, whose bytes lie in a buffer of just their size.
  std::string Describe(const std::string& slot, uint32_t backup_header = 0) {
    std::vector<char> bytes(slot.begin(), slot.end());
    EXPECT_EQ(bytes.size(), 64u);
    std::string info;
    EXPECT_TRUE(analyser_.GenAqlPacketInfo(bytes.data(), backup_header, save_dir_, info));
    return info;
  }

  void AddKernel(const std::string& object_name, uint64_t address, const std::string& kernel_name) {
    auto* object = new CodeObjectInfo;
    memcpy(object->name, object_name.data(), object_name.size());
    auto* kernel = new KernelInfo{};
    kernel->loaded_addr = address;
    memcpy(kernel->name, kernel_name.data(), kernel_name.size());
    object->kernel_list.push_back(kernel);
    analyser_.code_object_lists.push_back(object);
  }

  void LoadMemory(const std::vector<sample::MemoryRegion>& regions) {
    analyser_.mem_dir_ = dir_.Path("mems");
    ASSERT_TRUE(sample::WriteMemoryDirectory(regions, analyser_.mem_dir_));
    ASSERT_TRUE(analyser_.initProcessMem());
  }

  TempDir dir_;
  std::string save_dir_ = dir_.Path("queues/5");
  CoreDumpInfo analyser_;
};
