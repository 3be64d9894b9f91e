"""Context save areas: the control stack and the wave blocks that it describes."""

from core_file import GFX_VERSION_HERON, QUEUE_TYPE_COMPUTE_AQL
from output_tree import log_error, write_binary

LANES = 64
HWREG_WORDS = 16
TTMP_WORDS = 16
UNUSED_WORDS = 16
PREAMBLE_WORDS = 2


class SavedWave:
  """The offsets are file offsets; `lds_offset` is None for a group without LDS."""

  def __init__(self, image, block, vgpr_count, sgpr_count, lds_words, lds_offset):
    self.num_vgprs = vgpr_count
    self.vgprs_offset = block
    self.num_sgprs = sgpr_count
    self.sgprs_offset = block + 4 * vgpr_count * LANES
    self.lds_words = lds_words
    self.lds_offset = lds_offset
    hwregs = self.sgprs_offset + 4 * sgpr_count
    (self.m0, pc_lo, pc_hi, exec_lo, exec_hi, self.status, self.trapsts, xnack_lo, xnack_hi,
     self.mode, self.hw_id, self.gpr_alloc, self.lds_alloc, self.ib_sts, tba_lo, tba_hi, tma_lo,
     tma_hi) = image.words(hwregs, 18)
    ttmps = hwregs + 4 * HWREG_WORDS
    ttmp7 = image.u32(ttmps + 4 * 7)
    ttmp11 = image.u32(ttmps + 4 * 11)
    self.pc = pc_hi << 32 | pc_lo
    self.trap_pc = (ttmp11 >> 7 & 0xFFFF) << 32 | ttmp7
    self.exec = exec_hi << 32 | exec_lo
    self.xnack_mask = xnack_hi << 32 | xnack_lo
    self.tba = (tba_hi << 32 | tba_lo) << 8 & 0xFFFFFFFFFFFFFFFF
    self.tma = (tma_hi << 32 | tma_lo) << 8 & 0xFFFFFFFFFFFFFFFF


def read_queue_waves(core, agent, queue, queue_dir, waves):
  """Appends the queue's waves to waves[queue_id]. False when the area is not what it says it is;
  the waves found by then stay."""
  image = core.image
  area = queue.context_offset
  if not write_binary(queue_dir, b'cwsr', image.bytes(area, queue.context_sr_size)):
    return False
  stack_offset, stack_size, state_offset, state_size = image.words(area, 4)
  if (stack_offset + stack_size) & 0xFFFFFFFF != (state_offset - state_size) & 0xFFFFFFFF:
    log_error(b'Ctrl stack / context save address check fail\n')
    return False
  queue_waves = waves.setdefault(queue.queue_id, [])
  granule = 8 if agent.is_dp4x and agent.gfx_version != GFX_VERSION_HERON else 4
  vgpr_count = sgpr_count = lds_words = 0
  lds_offset = None
  block = area + state_offset
  for index in range(PREAMBLE_WORDS, stack_size // 4):
    relaunch = image.u32(area + stack_offset + 4 * index)
    is_state = relaunch >> 31 & 1
    is_event = relaunch >> 30 & 1
    if is_event:
      continue
    if is_state:
      vgpr_count = ((relaunch & 0x3F) + 1) * granule
      sgpr_count = (relaunch >> 6 & 0x7) * 16
      lds_words = (relaunch >> 9 & 0x1FF) * 128
      continue
    is_first = relaunch >> 17 & 1
    before_lds = vgpr_count * LANES + sgpr_count + HWREG_WORDS + TTMP_WORDS
    block -= 4 * (before_lds + (lds_words if is_first else 0) + UNUSED_WORDS)
    if is_first:
      lds_offset = block + 4 * before_lds if lds_words else None
    queue_waves.append(SavedWave(image, block, vgpr_count, sgpr_count, lds_words, lds_offset))
  if block != area + state_offset - state_size:
    log_error(b'Context save size check fail\n')
    return False
  return True


def read_agent_waves(core, agent, queue_dir_of, waves):
  """Stops at the first queue that cannot be read."""
  for queue in core.queues:
    if queue.gpu_id == agent.gpu_id and queue.queue_type == QUEUE_TYPE_COMPUTE_AQL:
      if not read_queue_waves(core, agent, queue, queue_dir_of(queue.queue_id), waves):
        return False
  return True
