// Code object listings: the worker pool that writes them, the window around a faulting PC, and the
// list of faulting code objects.

#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "core_dump_info.h"
#include "core_dump_info/disassembler.h"
#include "core_dump_info/report_file.h"
#include "logger.h"

namespace {

constexpr int kMaxThreads = 128;

// Each worker holds one chunk, so it is smaller than that of the reports of the main thread.
constexpr size_t kListingChunkSize = size_t{256} << 10;

// One listing to make.
struct DisCode {
  std::string agent_name;
  std::string code_name;
};

// The jobs: filled before the workers start, only read by them. Never cleared, on purpose: one run
// lists once.
std::vector<DisCode> DisCodeList;

// What one worker is told. Each has its own block, so that no string is shared.
struct DisCodeObjectArgs {
  int id = 0;
  int thread_count = 0;
  int code_count = 0;
  std::string rocm_dir;
  std::string dump_code_dir;
};

class ListingSink : public DisassemblySink {
 public:
  explicit ListingSink(ReportFile& listing) : listing_(listing) {}
  void Restart() override { listing_.Restart(); }
  void Add(std::string_view piece) override { listing_.Append(piece); }

 private:
  ReportFile& listing_;
};

int GetCpuNum() {
  FILE* pipe = popen("cat /proc/cpuinfo | grep processor | wc -l", "re");
  if (pipe == nullptr) {
    return 1;
  }
  char count[16] = {};
  const size_t length = fread(count, 1, sizeof(count) - 1, pipe);
  pclose(pipe);
  if (length == 0) {
    return 1;
  }
  const long number = strtol(count, nullptr, 10);
  return static_cast<int>(std::clamp<long>(number, 1, kMaxThreads));
}

// Thread entry. Jobs are dealt out in turn: worker k of n makes the listings k, k + n, k + 2n ...
void* thread_disassemble(void* arg) {
  const auto& args = *static_cast<const DisCodeObjectArgs*>(arg);
  utils::Log(utils::kLogDebug, "thread_disassemble id: %d\n", args.id);
  for (int i = args.id; i < args.code_count; i += args.thread_count) {
    const DisCode& code = DisCodeList[static_cast<size_t>(i)];
    ReportFile listing(args.dump_code_dir, code.code_name + ".asm", ReportFile::Mode::kReplace,
                       kListingChunkSize);
    ListingSink sink(listing);
    // A missing tool or code object leaves an empty listing.
    Disassemble({code.agent_name, code.code_name, kWholeObject, args.rocm_dir, args.dump_code_dir},
                sink);
    listing.Close();
  }
  return nullptr;
}

std::string AgentName(const CoreDumpAgent* agent) {
  return agent != nullptr ? std::string(FixedText(agent->name)) : std::string();
}

}  // namespace

const FaultWindows::Window* CoreDumpInfo::FaultWindow(const CoreDumpAgent& agent,
                                                      uint64_t fault_pc) {
  static const FaultWindows::Window kUnmatched = {"(Cannot match PC to a loaded code object)\n\n"};
  CodeObjectInfo* code_object = GetCodeObjectByPC(fault_pc);
  if (code_object == nullptr) {
    return &kUnmatched;
  }
  AddErrorCodeObject(code_object);
  return fault_windows_.Get({AgentName(&agent), code_object->name,
                             static_cast<int64_t>(fault_pc - code_object->addr_loaded), rocm_dir_,
                             dump_code_dir_});
}

bool CoreDumpInfo::DisFaultCodeObject(CoreDumpAgent* agent_info, uint64_t fault_pc,
                                      std::string& dis_code) {
  const FaultWindows::Window* window = FaultWindow(*agent_info, fault_pc);
  if (window == nullptr) {
    return false;
  }
  dis_code = fault_windows_.Text(*window);
  return true;
}

void CoreDumpInfo::AddErrorCodeObject(CodeObjectInfo* codeInfo) {
  if (codeInfo == nullptr) {
    return;
  }
  const bool is_exist =
      std::any_of(err_code_lists.begin(), err_code_lists.end(), [&](const CodeObjectInfo* listed) {
        return listed->addr_loaded == codeInfo->addr_loaded &&
               listed->size_loaded == codeInfo->size_loaded;
      });
  if (!is_exist) {
    err_code_lists.push_back(codeInfo);
  }
}

void CoreDumpInfo::DisAllCodeObject() {
  const std::vector<CodeObjectInfo*>& source =
      dis_all_code_object ? code_object_lists : err_code_lists;
  const int code_count = static_cast<int>(source.size());
  for (const CodeObjectInfo* code_object : source) {
    DisCodeList.push_back({AgentName(code_object->AgentInfo), code_object->name});
  }
  if (code_count <= 0) {
    return;
  }
  const int thread_count = std::min({GetCpuNum(), kMaxThreads, code_count});
  utils::Log(utils::kLogDebug, "CoreDump disassemble thread count: %d\n", thread_count);
  DisCodeObjectArgs args[kMaxThreads];
  pthread_t threads[kMaxThreads];
  bool started[kMaxThreads] = {};
  for (int i = 0; i < thread_count; ++i) {
    args[i] = {i, thread_count, code_count, rocm_dir_, dump_code_dir_};
    started[i] = pthread_create(&threads[i], nullptr, thread_disassemble, &args[i]) == 0;
    if (!started[i]) {
      thread_disassemble(&args[i]);  // a share without a thread is done here
    }
  }
  for (int i = 0; i < thread_count; ++i) {
    if (started[i]) {
      pthread_join(threads[i], nullptr);
    }
  }
}
