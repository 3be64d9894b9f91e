#include "gpu_index.h"

__kernel __attribute__((reqd_work_group_size(GROUP_SIZE, 1, 1)))
void vector_copy(__global const float* restrict source, __global float* restrict target,
                 uint count) {
  uint i = GlobalX();
  if (i < count) {
    target[i] = source[i];
  }
}
