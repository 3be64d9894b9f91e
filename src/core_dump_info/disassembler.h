// One llvm-objdump child: a code object of the dump directory to text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Takes a disassembly as it is made. A listing may be of any size, so whoever does not want to hold
// it whole gives a sink of its own.
class DisassemblySink {
 public:
  virtual ~DisassemblySink() = default;
  // Drops what was added so far. Called once the child runs, and again when it has failed.
  virtual void Restart() = 0;
  virtual void Add(std::string_view piece) = 0;
};

constexpr int64_t kWholeObject = -1;

// What to disassemble, and with which tool.
struct DisassemblyJob {
  std::string agent_name;             // gives the processor number
  std::string code_object_name;       // a file in dump_code_dir
  int64_t dis_offset = kWholeObject;  // all of it, or 32 bytes before and after this offset
  std::string rocm_dir;               // the tool is llvm/bin/llvm-objdump under it
  std::string dump_code_dir;
};

// Runs llvm-objdump and hands the report text to `sink`: a title, then all that the child wrote to
// its standard output and standard error; or a fixed text when the child did not exit with status
// 0. False, with `sink` untouched, when the tool or the code object file is missing or no pipe can
// be made. Blocks until the child is reaped. Any thread may call it; children share no pipe.
bool Disassemble(const DisassemblyJob& job, DisassemblySink& sink);

// Logs that the job is wanted, at debug level. Disassemble does so itself; this is for a job whose
// text is at hand already.
void LogDisassembly(const DisassemblyJob& job);

// Disassembles into a string, which is assigned.
bool DisCodeObject(const std::string& agent_name, const std::string& code_object_name,
                   int64_t dis_offset, std::string& dis_code, std::string rocm_dir_,
                   std::string dump_code_dir_);
