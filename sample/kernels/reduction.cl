#include "gpu_index.h"

// One sum per work-group: a tree over LDS.
__kernel __attribute__((reqd_work_group_size(GROUP_SIZE, 1, 1)))
void reduce_sum(__global const float* restrict values, __global float* restrict sums, uint count) {
  __local float partial[GROUP_SIZE];
  uint item = LocalX();
  uint i = GlobalX();
  partial[item] = i < count ? values[i] : 0.0f;
  GroupBarrier();
  for (uint step = GROUP_SIZE / 2; step > 0; step /= 2) {
    if (item < step) {
      partial[item] += partial[item + step];
    }
    GroupBarrier();
  }
  if (item == 0) {
    sums[GroupX()] = partial[0];
  }
}

// The same of the squares, for norms.
__kernel __attribute__((reqd_work_group_size(GROUP_SIZE, 1, 1)))
void reduce_squares(__global const float* restrict values, __global float* restrict sums,
                    uint count) {
  __local float partial[GROUP_SIZE];
  uint item = LocalX();
  uint i = GlobalX();
  float value = i < count ? values[i] : 0.0f;
  partial[item] = value * value;
  GroupBarrier();
  for (uint step = GROUP_SIZE / 2; step > 0; step /= 2) {
    if (item < step) {
      partial[item] += partial[item + step];
    }
    GroupBarrier();
  }
  if (item == 0) {
    sums[GroupX()] = partial[0];
  }
}
