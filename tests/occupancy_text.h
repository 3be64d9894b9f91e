// The occupancy table that stands in the file of an agent, by hand from the format of the reports.
#pragma once

#include <string>

namespace occupancy {

inline constexpr char kFreeCells[] = " - - - - | - - - - |";  // of two CUs

// The table whose SE 0 and SE 1 have these cells in CU 0 and 1, all others being empty.
inline std::string Text(const std::string& se0, const std::string& se1,
                        const std::string& summary) {
  const std::string rule = std::string(85, '-') + "\n";
  const std::string double_rule = std::string(85, '=') + "\n";
  const std::string six_free = std::string(kFreeCells) + kFreeCells + kFreeCells + "\n";
  const std::string free_row = kFreeCells + six_free;
  std::string text = rule;
  text += "SIMD| 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 ";
  text += "| 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | 0 1 2 3 | \n";
  text += rule;
  text += "CU  |    0    |    1    |    2    |    3    ";
  text += "|    4    |    5    |    6    |    7    |\n";
  text += "S0H0|" + se0 + six_free + "S1H0|" + se1 + six_free;
  text += "S2H0|" + free_row + "S3H0|" + free_row;
  text += rule;
  text += "CU  |    8    |    9    |   10    |   11    ";
  text += "|   12    |   13    |   14    |   15    |\n";
  text += "S0H0|" + free_row + "S1H0|" + free_row + "S2H0|" + free_row + "S3H0|" + free_row;
  text += double_rule;
  text +=
      "Used SEs(4)     Used CUs(64)    Used SIMDs(256)     Active Waves      Waves Occupancy   \n";
  text += summary + "\n";
  return text + double_rule;
}

inline std::string NoWaves() {
  return Text(kFreeCells, kFreeCells,
              "     0               0               0                   0               0.000 %");
}

// The waves here and below are on SIMD 0 of CU 0 of SE 0.
inline std::string OneWave() {
  return Text(" 1 - - - | - - - - |", kFreeCells,
              "     1               1               1                   1               0.039 %");
}

inline std::string TwoWaves() {
  return Text(" 2 - - - | - - - - |", kFreeCells,
              "     1               1               1                   2               0.078 %");
}

}  // namespace occupancy
