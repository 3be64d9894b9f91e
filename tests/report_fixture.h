// An analyser without records, for the tests of single reports.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "core_dump_info.h"
#include "temp_dir.h"

class ReportTest : public testing::Test {
 protected:
  ReportTest() {
    analyser_.dump_dir_ = dir_.Path();
    analyser_.dump_queue_dir_ = dir_.Path("queues");
  }

  CoreDumpQueue* AddQueue(uint32_t queue_id) {
    auto* queue = new CoreDumpQueue();
    queue->queue_id = queue_id;
    return analyser_.queue_lists.emplace_back(queue);
  }

  // From here on no report can be written.
  void BlockReports() {
    WriteText(dir_.Path("file"), "");
    analyser_.dump_dir_ = dir_.Path("file/sub");
    analyser_.dump_queue_dir_ = dir_.Path("file/sub/queues");
  }

  TempDir dir_;
  CoreDumpInfo analyser_;
};
