#include "gpu_index.h"

#define TILE 16

// c = a * b for square matrices whose side is a multiple of TILE; tiles of a and b go through LDS.
__kernel __attribute__((reqd_work_group_size(TILE, TILE, 1)))
void matmul(__global const float* restrict a, __global const float* restrict b,
            __global float* restrict c, uint side) {
  __local float tile_a[TILE][TILE];
  __local float tile_b[TILE][TILE];
  uint x = LocalX();
  uint y = LocalY();
  uint row = GroupY() * TILE + y;
  uint column = GroupX() * TILE + x;
  float sum = 0.0f;
  for (uint first = 0; first < side; first += TILE) {
    tile_a[y][x] = a[row * side + first + x];
    tile_b[y][x] = b[(first + y) * side + column];
    GroupBarrier();
    for (uint k = 0; k < TILE; ++k) {
      sum += tile_a[y][k] * tile_b[k][x];
    }
    GroupBarrier();
  }
  c[row * side + column] = sum;
}
