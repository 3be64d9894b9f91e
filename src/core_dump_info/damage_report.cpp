#include "core_dump_info/damage_report.h"

#include <cinttypes>

#include "file_manager.h"
#include "logger.h"
#include "utils.h"

void DamageReport::Add(std::string_view what, uint64_t file_offset, uint64_t wanted,
                       uint64_t available) {
  std::string line(what);
  line += StrFormat(": file offset 0X%" PRIX64 ", wanted %" PRIu64 " bytes, available %" PRIu64
                    " bytes\n",
                    file_offset, wanted, available);
  utils::Log(utils::kLogError, "damaged core file: %s", line.c_str());
  WriteTextFile(dump_dir_, "damage", line, started_);
  started_ = true;
}

std::string PrintableText(std::string_view text) {
  constexpr size_t kLongest = 100;
  std::string printable(text.substr(0, kLongest));
  for (char& c : printable) {
    if (c < ' ' || c > '~') {
      c = '?';
    }
  }
  if (text.size() > kLongest) {
    printable += "...";
  }
  return printable;
}
