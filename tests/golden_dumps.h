// One small dump per reason to dump, declared in full. Between them they hold every kind of ring
// packet, waves of all shapes, and both places where retired packets keep their headers.
#pragma once

#include <vector>

#include "core_file_writer.h"

struct GoldenDump {
  sample::CoreFile core;
  std::vector<sample::MemoryRegion> memory;
  bool dis_all = false;
};

// Format 1.1.0. Two groups of waves in one queue, the first with LDS and a faulting wave; only the
// code object of the fault is listed.
GoldenDump QueueErrorDump();

// Format 0. Two agents; faulting waves in two queues that stand in the file in descending order of
// their ids, one of them outside every code object; every code object is listed.
GoldenDump VmFaultDump();

// Format 1.0.255, the last without header backup. Waves recorded in the core file; those of the
// queue's context save area are not reported.
GoldenDump SignalDump();
