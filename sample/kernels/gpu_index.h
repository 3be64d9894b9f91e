// Work-item indices and the work-group barrier, from the compiler's own builtins: the kernels are
// compiled without a device library.
#ifndef TALVEX_SAMPLE_KERNELS_GPU_INDEX_H_
#define TALVEX_SAMPLE_KERNELS_GPU_INDEX_H_

// Every kernel here is launched with work-groups of GROUP_SIZE items along x.
#define GROUP_SIZE 256

static inline uint LocalX(void) { return __builtin_amdgcn_workitem_id_x(); }
static inline uint LocalY(void) { return __builtin_amdgcn_workitem_id_y(); }
static inline uint GroupX(void) { return __builtin_amdgcn_workgroup_id_x(); }
static inline uint GroupY(void) { return __builtin_amdgcn_workgroup_id_y(); }
static inline uint GlobalX(void) { return GroupX() * GROUP_SIZE + LocalX(); }

// All LDS stores before it are visible to the whole work-group after it.
static inline void GroupBarrier(void) {
  __builtin_amdgcn_fence(__ATOMIC_RELEASE, "workgroup");
  __builtin_amdgcn_s_barrier();
  __builtin_amdgcn_fence(__ATOMIC_ACQUIRE, "workgroup");
}

#endif
