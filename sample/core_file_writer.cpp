#include "core_file_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "core_file_records.h"

namespace sample {
namespace {

using Take = std::function<void(const std::string&)>;

constexpr Region kDefaultOrder[] = {
    Region::kReason,      Region::kAgents, Region::kQueues, Region::kCodeObjects, Region::kKernels,
    Region::kEnvironment, Region::kElfs,   Region::kRings,  Region::kContexts,    Region::kWaves,
};

// What lies between the regions, so that a read that strays shows.
constexpr char kFiller = static_cast<char>(0xEE);
constexpr uint64_t kFillerPiece = uint64_t{64} << 10;

std::vector<Region> Order(const Layout& layout) {
  if (layout.order.empty()) {
    return {std::begin(kDefaultOrder), std::end(kDefaultOrder)};
  }
  return layout.order;
}

uint64_t KernelCount(const CoreFile& file) {
  uint64_t count = 0;
  for (const CodeObject& object : file.code_objects) {
    count += object.kernels.size();
  }
  return count;
}

// Gives out the places of a file from its start to its end.
class Cursor {
 public:
  Cursor(const Layout& layout, uint64_t position) : layout_(layout), position_(position) {}

  uint64_t position() const { return position_; }

  uint64_t Place(uint64_t size) {
    const uint64_t offset = NextStart();
    position_ = offset + size;
    return offset;
  }

  // The offsets of `count` records back to back.
  std::vector<uint64_t> PlaceTable(uint64_t count, uint64_t record_size) {
    std::vector<uint64_t> offsets;
    const uint64_t first = count == 0 ? 0 : Place(count * record_size);
    for (uint64_t i = 0; i < count; ++i) {
      offsets.push_back(first + i * record_size);
    }
    return offsets;
  }

 private:
  uint64_t NextStart() const {
    const uint64_t alignment = std::max<uint64_t>(layout_.alignment, 1);
    const uint64_t earliest = position_ + layout_.gap;
    const uint64_t wanted = layout_.misalignment % alignment;
    return earliest + (wanted + alignment - earliest % alignment) % alignment;
  }

  const Layout& layout_;
  uint64_t position_;
};

void PlaceRegion(Region region, const CoreFile& file, Cursor& cursor, Placement& at) {
  switch (region) {
    case Region::kReason:
      at.reason = cursor.Place(kReasonSize);
      break;
    case Region::kAgents:
      at.agents = cursor.PlaceTable(file.agents.size(), kAgentSize);
      break;
    case Region::kQueues:
      at.queues = cursor.PlaceTable(file.queues.size(), kQueueSize);
      break;
    case Region::kCodeObjects:
      at.code_objects = cursor.PlaceTable(file.code_objects.size(), kCodeObjectSize);
      break;
    case Region::kKernels:
      at.kernels = cursor.PlaceTable(KernelCount(file), kKernelSize);
      break;
    case Region::kEnvironment:
      at.environment = cursor.Place(file.environment.size() + 1);
      break;
    case Region::kElfs:
      for (const CodeObject& object : file.code_objects) {
        at.elfs.push_back(cursor.Place(object.elf.size()));
      }
      break;
    case Region::kRings:
      for (const Queue& queue : file.queues) {
        at.rings.push_back(cursor.Place(queue.ring.size() + 4 * queue.header_backup.size()));
      }
      break;
    case Region::kContexts:
      for (const Queue& queue : file.queues) {
        at.contexts.push_back(cursor.Place(queue.context.size()));
      }
      break;
    case Region::kWaves:
      for (const Agent& agent : file.agents) {
        const uint64_t count = WaveCount(agent);
        at.waves.push_back(count == 0 ? 0 : cursor.Place(count * kWaveSize));
      }
      break;
  }
}

// The file's bytes on their way out, in order.
class Stream {
 public:
  explicit Stream(Take take) : take_(std::move(take)) {}

  void Write(const std::string& bytes) {
    take_(bytes);
    position_ += bytes.size();
  }

  void WriteAt(uint64_t offset, const std::string& bytes) {
    MoveTo(offset);
    Write(bytes);
  }

  void WriteAt(uint64_t offset, const Content& content) {
    MoveTo(offset);
    content.Produce([this](const std::string& piece) { Write(piece); });
  }

 private:
  void MoveTo(uint64_t offset) {
    while (position_ < offset) {
      Write(std::string(std::min(offset - position_, kFillerPiece), kFiller));
    }
  }

  Take take_;
  uint64_t position_ = 0;
};

void WriteWaves(const Agent& agent, uint64_t offset, Stream& out) {
  for (uint64_t i = 0; i < WaveCount(agent); ++i) {
    out.WriteAt(offset + i * kWaveSize,
                WaveBytes(agent.make_wave ? agent.make_wave(i) : agent.waves[i]));
  }
}

void WriteTable(const std::vector<uint64_t>& offsets, const std::string& table, Stream& out) {
  if (!offsets.empty()) {
    out.WriteAt(offsets.front(), table);
  }
}

void WriteRegion(Region region, const CoreFile& file, const Placement& at, Stream& out) {
  switch (region) {
    case Region::kReason:
      out.WriteAt(at.reason, ReasonBytes(file));
      break;
    case Region::kAgents:
      WriteTable(at.agents, AgentTable(file, at), out);
      break;
    case Region::kQueues:
      WriteTable(at.queues, QueueTable(file, at), out);
      break;
    case Region::kCodeObjects:
      WriteTable(at.code_objects, CodeObjectTable(file, at), out);
      break;
    case Region::kKernels:
      WriteTable(at.kernels, KernelTable(file), out);
      break;
    case Region::kEnvironment:
      out.WriteAt(at.environment, file.environment + '\0');
      break;
    case Region::kElfs:
      for (size_t i = 0; i < file.code_objects.size(); ++i) {
        out.WriteAt(at.elfs[i], file.code_objects[i].elf);
      }
      break;
    case Region::kRings:
      for (size_t i = 0; i < file.queues.size(); ++i) {
        out.WriteAt(at.rings[i], file.queues[i].ring);
        out.Write(Dwords(file.queues[i].header_backup));
      }
      break;
    case Region::kContexts:
      for (size_t i = 0; i < file.queues.size(); ++i) {
        out.WriteAt(at.contexts[i], file.queues[i].context);
      }
      break;
    case Region::kWaves:
      for (size_t i = 0; i < file.agents.size(); ++i) {
        WriteWaves(file.agents[i], at.waves[i], out);
      }
      break;
  }
}

void WriteAll(const CoreFile& file, const Take& take) {
  const Placement at = Place(file);
  Stream out(take);
  out.Write(HeaderBytes(file, at));
  for (const Region region : Order(file.layout)) {
    WriteRegion(region, file, at, out);
  }
}

}  // namespace

void Content::Produce(const Take& take) const {
  if (producer_) {
    producer_(take);
  } else {
    take(bytes_);
  }
}

Placement Place(const CoreFile& file) {
  Placement at;
  Cursor cursor(file.layout, HeaderSize(file));
  for (const Region region : Order(file.layout)) {
    PlaceRegion(region, file, cursor, at);
  }
  at.file_size = cursor.position();
  return at;
}

std::string CoreFileBytes(const CoreFile& file) {
  std::string bytes;
  bytes.reserve(Place(file).file_size);
  WriteAll(file, [&bytes](const std::string& piece) { bytes += piece; });
  return bytes;
}

bool WriteCoreFile(const CoreFile& file, const std::string& path) {
  FILE* stream = fopen(path.c_str(), "wb");
  if (stream == nullptr) {
    return false;
  }
  // In large pieces, as the runtime writes its regions: the kernel then caches the file in large
  // folios, which a reader maps at half the cost.
  std::vector<char> buffer(size_t{4} << 20);
  setvbuf(stream, buffer.data(), _IOFBF, buffer.size());
  int error = 0;
  WriteAll(file, [stream, &error](const std::string& piece) {
    if (error == 0 && fwrite(piece.data(), 1, piece.size(), stream) != piece.size()) {
      error = errno;
    }
  });
  if (fclose(stream) != 0 && error == 0) {
    error = errno;
  }
  errno = error;
  return error == 0;
}

}  // namespace sample
