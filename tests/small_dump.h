// A small core file of a VM fault with every kind of region but recorded waves, for tests that
// damage it.
#pragma once

#include <vector>

#include "core_file_writer.h"

// Two agents (nodes 1 and 2), an AQL queue with two saved waves and an SDMA queue of the first (7
// and 8), an AQL queue with one saved wave of the second (9), two code objects with two kernels and
// one. No wave is faulting.
sample::CoreFile SmallDump();

// The dumped memory to go with it: the arguments of the kernel that queue 7 dispatched.
std::vector<sample::MemoryRegion> SmallDumpMemory();
