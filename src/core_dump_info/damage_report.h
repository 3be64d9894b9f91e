// What a damaged core file no longer holds.
//
// Every loss is one error line on standard error and one line in the file `damage` at the top of
// the dump directory, so that what is absent never looks like zero. A well-formed core file makes
// none.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class DamageReport {
 public:
  // Where `damage` goes. The first loss of a run replaces an earlier run's file.
  void SetDirectory(std::string dump_dir) { dump_dir_ = std::move(dump_dir); }

  // Notes that of the `wanted` bytes of `what` at `file_offset` only `available` could be used.
  // Call it for a loss only.
  void Add(std::string_view what, uint64_t file_offset, uint64_t wanted, uint64_t available);

 private:
  std::string dump_dir_;
  bool started_ = false;
};

// A text from the file made fit for one line of a message: bytes outside printable ASCII become
// '?', what is beyond 100 characters becomes "...".
std::string PrintableText(std::string_view text);
