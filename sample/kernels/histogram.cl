#include "gpu_index.h"

// Counts values by bin. Nothing holds a value inside the bins: one that is too large for them makes
// the kernel store far behind the array, which is how the sample dumps come to their memory fault.
__kernel __attribute__((reqd_work_group_size(GROUP_SIZE, 1, 1)))
void histogram(__global const uint* restrict values, __global volatile uint* bins, uint count,
               uint values_per_bin) {
  uint i = GlobalX();
  if (i >= count) {
    return;
  }
  uint bin = values[i] / values_per_bin;
  bins[bin] += 1;
}

// Empties the bins for the next pass.
__kernel __attribute__((reqd_work_group_size(GROUP_SIZE, 1, 1)))
void histogram_clear(__global uint* restrict bins, uint count) {
  uint i = GlobalX();
  if (i < count) {
    bins[i] = 0;
  }
}
