// A core file in which no record is the only one of its table.
#pragma once

#include <string>

#include "core_file_writer.h"

// Two agents (the second with a wave), two queues, two code objects with two kernels and one.
inline sample::CoreFile TwoOfEverything() {
  sample::CoreFile file;
  file.agents.resize(2);
  file.agents[0].name = "first";
  file.agents[1].name = "second";
  file.agents[1].waves.resize(1);
  file.queues.resize(2);
  file.queues[0].queue_id = 3;
  file.queues[0].ring = std::string(64, 'r');
  file.queues[0].header_backup = {0x1502};
  file.queues[0].context = std::string(24, 'c');
  file.queues[1].queue_id = 4;
  file.queues[1].ring = std::string(128, 's');
  file.queues[1].context = std::string(32, 'd');
  file.code_objects.resize(2);
  file.code_objects[0].elf = "elf one";
  file.code_objects[0].kernels = {{0x1000, "k0"}, {0x2000, "k1"}};
  file.code_objects[1].elf = "elf number two";
  file.code_objects[1].kernels = {{0x3000, "k2"}};
  file.environment = "HOME=/root\n";
  return file;
}
