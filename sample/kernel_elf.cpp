#include "kernel_elf.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <optional>

namespace sample {
namespace {

// Offsets of the ELF64 structures' fields, and the values looked for.
constexpr uint64_t kMagic = 0x464C457F;  // "\x7F" "ELF"
constexpr uint64_t kClassOffset = 4;
constexpr uint64_t kClass64 = 2;
constexpr uint64_t kDataOffset = 5;
constexpr uint64_t kDataLittleEndian = 1;
constexpr uint64_t kHeaderSize = 64;
constexpr uint64_t kProgramHeadersOffset = 32;
constexpr uint64_t kSectionHeadersOffset = 40;
constexpr uint64_t kProgramHeaderCount = 56;
constexpr uint64_t kSectionHeaderCount = 60;

constexpr uint64_t kProgramHeaderSize = 56;
constexpr uint64_t kSegmentType = 0;
constexpr uint64_t kSegmentLoad = 1;
constexpr uint64_t kSegmentFileOffset = 8;
constexpr uint64_t kSegmentAddress = 16;
constexpr uint64_t kSegmentFileSize = 32;
constexpr uint64_t kSegmentMemorySize = 40;

constexpr uint64_t kSectionHeaderSize = 64;
constexpr uint64_t kSectionType = 4;
constexpr uint64_t kSectionSymtab = 2;
constexpr uint64_t kSectionDynsym = 11;
constexpr uint64_t kSectionOffset = 24;
constexpr uint64_t kSectionSize = 32;
constexpr uint64_t kSectionLink = 40;

constexpr uint64_t kSymbolSize = 24;
constexpr uint64_t kSymbolName = 0;
constexpr uint64_t kSymbolInfo = 4;
constexpr uint64_t kSymbolFunction = 2;  // low four bits of the info byte
constexpr uint64_t kSymbolSection = 6;
constexpr uint64_t kSymbolAddress = 8;
constexpr uint64_t kSymbolLength = 16;

// The first word of a kernel descriptor: LDS bytes that every work-group gets.
constexpr uint64_t kDescriptorLdsSize = 4;

struct Segment {
  uint64_t file_offset;
  uint64_t address;
  uint64_t file_size;
};

struct Symbol {
  std::string name;
  uint64_t address;
  uint64_t size;
  bool is_function;  // and defined in this image
};

class Reader {
 public:
  Reader(const std::string& bytes, std::string& error) : bytes_(bytes), error_(error) {}

  bool Read(ElfImage& image);

 private:
  bool Holds(uint64_t offset, uint64_t size) const {
    return offset <= bytes_.size() && size <= bytes_.size() - offset;
  }
  // `width` bytes that Holds has been asked for.
  uint64_t Get(uint64_t offset, uint64_t width) const;
  bool CheckTable(const char* what, uint64_t offset, uint64_t count, uint64_t entry_size);

  bool CheckHeader();
  bool ReadSegments(uint64_t& loaded_size);
  bool FindSymbolTable(uint64_t& section) const;
  bool ReadSymbols();
  std::string Name(uint64_t strings_offset, uint64_t strings_size, uint64_t index) const;
  uint32_t LdsBytes(const std::string& kernel) const;
  std::optional<uint64_t> FileOffset(uint64_t address, uint64_t size) const;

  const std::string& bytes_;
  std::string& error_;
  std::vector<Segment> segments_;
  std::vector<Symbol> symbols_;
};

uint64_t Reader::Get(uint64_t offset, uint64_t width) const {
  uint64_t value = 0;
  for (uint64_t i = 0; i < width; ++i) {
    value |= static_cast<uint64_t>(static_cast<unsigned char>(bytes_[offset + i])) << (8 * i);
  }
  return value;
}

bool Reader::CheckTable(const char* what, uint64_t offset, uint64_t count, uint64_t entry_size) {
  if (offset <= bytes_.size() && count <= (bytes_.size() - offset) / entry_size) {
    return true;
  }
  char text[160];
  snprintf(text, sizeof(text),
           "%" PRIu64 " %s at offset 0x%" PRIx64 " do not fit into a file of %zu bytes", count,
           what, offset, bytes_.size());
  error_ = text;
  return false;
}

bool Reader::CheckHeader() {
  if (!Holds(0, kHeaderSize)) {
    error_ = "found " + std::to_string(bytes_.size()) + " bytes, expected an ELF header of " +
             std::to_string(kHeaderSize) + " at offset 0";
    return false;
  }
  if (Get(0, 4) != kMagic || Get(kClassOffset, 1) != kClass64 ||
      Get(kDataOffset, 1) != kDataLittleEndian) {
    error_ = "expected a little-endian ELF64 image at offset 0, found something else";
    return false;
  }
  return true;
}

bool Reader::ReadSegments(uint64_t& loaded_size) {
  const uint64_t table = Get(kProgramHeadersOffset, 8);
  const uint64_t count = Get(kProgramHeaderCount, 2);
  if (!CheckTable("program headers", table, count, kProgramHeaderSize)) {
    return false;
  }
  loaded_size = 0;
  for (uint64_t header = table; header < table + count * kProgramHeaderSize;
       header += kProgramHeaderSize) {
    if (Get(header + kSegmentType, 4) == kSegmentLoad) {
      const uint64_t address = Get(header + kSegmentAddress, 8);
      segments_.push_back(
          {Get(header + kSegmentFileOffset, 8), address, Get(header + kSegmentFileSize, 8)});
      loaded_size = std::max(loaded_size, address + Get(header + kSegmentMemorySize, 8));
    }
  }
  return true;
}

// The full symbol table, or the dynamic one of an image that was stripped.
bool Reader::FindSymbolTable(uint64_t& section) const {
  const uint64_t table = Get(kSectionHeadersOffset, 8);
  const uint64_t count = Get(kSectionHeaderCount, 2);
  for (const uint64_t wanted : {kSectionSymtab, kSectionDynsym}) {
    for (uint64_t i = 0; i < count; ++i) {
      section = table + i * kSectionHeaderSize;
      if (Get(section + kSectionType, 4) == wanted) {
        return true;
      }
    }
  }
  return false;
}

bool Reader::ReadSymbols() {
  const uint64_t sections = Get(kSectionHeadersOffset, 8);
  const uint64_t section_count = Get(kSectionHeaderCount, 2);
  if (!CheckTable("section headers", sections, section_count, kSectionHeaderSize)) {
    return false;
  }
  uint64_t section = 0;
  if (!FindSymbolTable(section)) {
    return true;
  }
  const uint64_t table = Get(section + kSectionOffset, 8);
  const uint64_t count = Get(section + kSectionSize, 8) / kSymbolSize;
  const uint64_t link = Get(section + kSectionLink, 4);
  if (!CheckTable("symbols", table, count, kSymbolSize)) {
    return false;
  }
  if (link >= section_count) {
    error_ = "found section " + std::to_string(link) + " as the symbol names, expected one below " +
             std::to_string(section_count);
    return false;
  }
  const uint64_t strings = sections + link * kSectionHeaderSize;
  const uint64_t strings_offset = Get(strings + kSectionOffset, 8);
  const uint64_t strings_size = Get(strings + kSectionSize, 8);
  if (!CheckTable("bytes of symbol names", strings_offset, strings_size, 1)) {
    return false;
  }
  for (uint64_t symbol = table; symbol < table + count * kSymbolSize; symbol += kSymbolSize) {
    const bool is_function = (Get(symbol + kSymbolInfo, 1) & 0xF) == kSymbolFunction &&
                             Get(symbol + kSymbolSection, 2) != 0;
    symbols_.push_back({Name(strings_offset, strings_size, Get(symbol + kSymbolName, 4)),
                        Get(symbol + kSymbolAddress, 8), Get(symbol + kSymbolLength, 8),
                        is_function});
  }
  return true;
}

std::string Reader::Name(uint64_t strings_offset, uint64_t strings_size, uint64_t index) const {
  if (index >= strings_size) {
    return "";
  }
  const uint64_t start = strings_offset + index;
  const uint64_t end = std::min(bytes_.find('\0', start), strings_offset + strings_size);
  return bytes_.substr(start, end - start);
}

std::optional<uint64_t> Reader::FileOffset(uint64_t address, uint64_t size) const {
  for (const Segment& segment : segments_) {
    const uint64_t distance = address - segment.address;
    if (address >= segment.address && distance <= segment.file_size &&
        size <= segment.file_size - distance && Holds(segment.file_offset, segment.file_size)) {
      return segment.file_offset + distance;
    }
  }
  return std::nullopt;
}

uint32_t Reader::LdsBytes(const std::string& kernel) const {
  for (const Symbol& symbol : symbols_) {
    if (symbol.name == kernel + ".kd") {
      const auto offset = FileOffset(symbol.address, kDescriptorLdsSize);
      return offset ? static_cast<uint32_t>(Get(*offset, kDescriptorLdsSize)) : 0;
    }
  }
  return 0;
}

bool Reader::Read(ElfImage& image) {
  if (!CheckHeader() || !ReadSegments(image.loaded_size) || !ReadSymbols()) {
    return false;
  }
  image.functions.clear();
  for (const Symbol& symbol : symbols_) {
    if (symbol.is_function) {
      image.functions.push_back({symbol.name, symbol.address, symbol.size, LdsBytes(symbol.name)});
    }
  }
  return true;
}

}  // namespace

bool ReadElf(const std::string& bytes, ElfImage& image, std::string& error) {
  return Reader(bytes, error).Read(image);
}

}  // namespace sample
