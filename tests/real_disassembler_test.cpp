// The disassembler with the real tool and real code objects, compiled for gfx906 with debug
// information.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "core_dump_info/disassembler.h"
#include "row_name.h"
#include "stand_in_tool.h"
#include "temp_dir.h"
#include "utils.h"

namespace {

class RealToolTest : public testing::Test {
 protected:
  RealToolTest() : rocm_(dir_.Path("rocm")) { rocm_.InstallLink(TALVEX_LLVM_OBJDUMP); }

  std::string Text(const std::string& code_object_name, int64_t dis_offset = -1,
                   const std::string& codes = TALVEX_KERNELS_DIR) const {
    std::string text;
    EXPECT_TRUE(
        DisCodeObject("gpu-gfx906", code_object_name, dis_offset, text, rocm_.Path(), codes));
    return text;
  }

  TempDir dir_;
  StandInRocm rocm_;
};

struct KernelRow {
  const char* name;
  const char* code_object;
  const char* symbol;
  const char* source_line;
};

void PrintTo(const KernelRow& row, std::ostream* out) { *out << row.name; }

class RealListingTest : public RealToolTest, public testing::WithParamInterface<KernelRow> {};

TEST_P(RealListingTest, ShowsTheKernelAndItsSource) {
  const std::string listing = Text(GetParam().code_object);
  EXPECT_EQ(listing.find("Code Object:\n"), 0u);
  EXPECT_NE(listing.find(GetParam().symbol), std::string::npos) << listing;
  EXPECT_NE(listing.find(GetParam().source_line), std::string::npos) << listing;
  EXPECT_NE(listing.find("s_endpgm"), std::string::npos) << listing;
}

constexpr KernelRow kKernelRows[] = {
    {"Copy", "copy.co", "<vector_copy>:\n", "target[i] = source[i];"},
    {"Saxpy", "saxpy.co", "<saxpy>:\n", "y[i] = a * x[i] + y[i];"},
    {"ReduceSum", "reduction.co", "<reduce_sum>:\n", "partial[item] += partial[item + step];"},
    {"ReduceSquares", "reduction.co", "<reduce_squares>:\n", "partial[item] = value * value;"},
    {"Matmul", "matmul.co", "<matmul>:\n", "sum += tile_a[y][k] * tile_b[k][x];"},
    {"Histogram", "histogram.co", "<histogram>:\n", "uint bin = values[i] / values_per_bin;"},
};

INSTANTIATE_TEST_SUITE_P(Kernels, RealListingTest, testing::ValuesIn(kKernelRows),
                         RowName<KernelRow>);

// The address of the first instruction of that name, from the list beside the code object.
int64_t AddressOf(const std::string& mnemonic, const std::string& list) {
  std::istringstream lines(ReadText(list));
  std::string address;
  for (std::string name; lines >> address >> name;) {
    if (name == mnemonic) {
      return std::stoll(address, nullptr, 16);
    }
  }
  ADD_FAILURE() << "no " << mnemonic << " in " << list;
  return 0;
}

// The addresses of the instructions of a listing, which stand in comments behind them.
std::vector<int64_t> Addresses(const std::string& listing) {
  static const std::regex kAddress(R"(// ([0-9A-F]{12}):)");
  std::vector<int64_t> addresses;
  for (std::sregex_iterator i(listing.begin(), listing.end(), kAddress), end; i != end; ++i) {
    addresses.push_back(std::stoll((*i)[1], nullptr, 16));
  }
  return addresses;
}

TEST_F(RealToolTest, AWindowShowsTheInstructionAndItsSource) {
  const int64_t pc = AddressOf("global_store_dword", TALVEX_KERNELS_DIR "/copy.pcs");
  const std::string window = Text("copy.co", pc);
  EXPECT_NE(window.find("target[i] = source[i];"), std::string::npos) << window;
  const std::regex instruction(
      StrFormat("\tglobal_store_dword [^\n]*// %012lX:", static_cast<uint64_t>(pc)));
  EXPECT_TRUE(std::regex_search(window, instruction)) << window;
  const std::string title = StrFormat("\nPC offset: 0X%lX\n\n", static_cast<uint64_t>(pc));
  ASSERT_GT(window.size(), title.size());
  EXPECT_EQ(window.substr(window.size() - title.size()), title);
}

TEST_F(RealToolTest, AWindowShowsNothingBeyondIt) {
  const int64_t pc = AddressOf("global_store_dword", TALVEX_KERNELS_DIR "/copy.pcs");
  const std::vector<int64_t> addresses = Addresses(Text("copy.co", pc));
  EXPECT_FALSE(addresses.empty());
  for (const int64_t address : addresses) {
    EXPECT_GE(address, pc - 0x20);
    EXPECT_LT(address, pc + 0x20);
  }
}

TEST_F(RealToolTest, AFileThatIsNoCodeObject) {
  WriteText(dir_.Path("code_object_0"), "no ELF image");
  EXPECT_EQ(Text("code_object_0", -1, dir_.Path()),
            DisassemblyUnavailable(dir_.Path("code_object_0")));
}

// The tool warns under the name that it was called by. A source that is not there makes it warn.
TEST_F(RealToolTest, IsCalledByItsName) {
  std::string elf = ReadText(TALVEX_KERNELS_DIR "/copy.co");
  const std::string source = "copy.cl";
  size_t places = 0;
  for (size_t at = elf.find(source); at != std::string::npos; at = elf.find(source, at)) {
    elf.replace(at, source.size(), "gone.cl");
    ++places;
  }
  ASSERT_GT(places, 0u);
  WriteText(dir_.Path("code_object_0"), elf);
  const std::string listing = Text("code_object_0", -1, dir_.Path());
  EXPECT_NE(listing.find("llvm-objdump: warning: "), std::string::npos) << listing;
  EXPECT_NE(listing.find("s_endpgm"), std::string::npos) << listing;
}

}  // namespace
