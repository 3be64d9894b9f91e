// The reports of single waves, and parts of such reports.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "core_dump_info.h"

// An analyser with one code object, and one wave of each kind.
class WaveReportTest : public testing::Test {
 protected:
  WaveReportTest() {
    wave_.num_vgpr_lanes = 64;
    wave_.sgprs = wave_.vgprs = &no_registers_;
    auto* code_object = new CodeObjectInfo();
    code_object->addr_loaded = 0x7F0000001000;
    code_object->size_loaded = 0x1000;
    strcpy(code_object->name, "code_object_3");
    analyser_.code_object_lists.push_back(code_object);
  }

  std::string Saved(uint32_t gfxv = GFX_VERSION_OSPREY, bool is_dp4x = false) {
    std::string info;
    EXPECT_TRUE(analyser_.GenWaveInfo(gfxv, is_dp4x, &wave_, info));
    return info;
  }

  std::string Recorded(bool is_dp4x = false) {
    std::string info;
    EXPECT_TRUE(analyser_.GenActiveWaveInfo(is_dp4x, *record_, info));
    return info;
  }

  CoreDumpInfo analyser_;
  const uint32_t no_registers_ = 0;
  WaveStateInfo wave_ = {};
  std::unique_ptr<WaveInfo> record_ = std::make_unique<WaveInfo>();
};

// What stands in `report` behind the first `before`.
inline std::string After(const std::string& report, const std::string& before) {
  const size_t begin = report.find(before);
  if (begin == std::string::npos) {
    ADD_FAILURE() << "no \"" << before << "\" in the report";
    return {};
  }
  return report.substr(begin + before.size());
}

// The same up to the first `end` from there.
inline std::string Between(const std::string& report, const std::string& before,
                           const std::string& end) {
  const std::string rest = After(report, before);
  return rest.substr(0, rest.find(end));
}
