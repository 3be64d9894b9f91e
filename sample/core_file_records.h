// The records of a core file as bytes: every field placed by its offset and width.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "core_file_writer.h"

namespace sample {

constexpr size_t kHeaderSizeV0 = 88;
constexpr size_t kHeaderSizeV1 = 128;
constexpr size_t kReasonSize = 112;
constexpr size_t kAgentSize = 1112;
constexpr size_t kQueueSize = 144;
constexpr size_t kCodeObjectSize = 64;
constexpr size_t kKernelSize = 1032;
constexpr size_t kWaveSize = 69696;

uint64_t HeaderSize(const CoreFile& file);
uint64_t WaveCount(const Agent& agent);

// The header and the tables, overrides applied. File offsets are taken from `at`.
std::string HeaderBytes(const CoreFile& file, const Placement& at);
std::string ReasonBytes(const CoreFile& file);
std::string AgentTable(const CoreFile& file, const Placement& at);
std::string QueueTable(const CoreFile& file, const Placement& at);
std::string CodeObjectTable(const CoreFile& file, const Placement& at);
std::string KernelTable(const CoreFile& file);

std::string WaveBytes(const SavedWave& wave);

}  // namespace sample
