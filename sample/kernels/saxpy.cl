#include "gpu_index.h"

// y = a * x + y
__kernel __attribute__((reqd_work_group_size(GROUP_SIZE, 1, 1)))
void saxpy(float a, __global const float* restrict x, __global float* restrict y, uint count) {
  uint i = GlobalX();
  if (i < count) {
    y[i] = a * x[i] + y[i];
  }
}
