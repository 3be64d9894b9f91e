// A believable dump from a handful of options: agents with code objects loaded, queues with rings,
// waves that ran when the event came.
#pragma once

#include <vector>

#include "code_object_file.h"
#include "core_file_writer.h"
#include "dump_options.h"

namespace sample {

struct Dump {
  CoreFile core = {};
  std::vector<MemoryRegion> memory = {};
};

// Every detail follows from the options and the code objects, which must have a kernel among them.
// Large regions are made when the core file is written.
Dump BuildDump(const DumpOptions& options, const std::vector<CodeObjectFile>& code_objects);

}  // namespace sample
