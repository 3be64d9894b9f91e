"""Random context save areas: work-groups with and without LDS, events, areas that fail a check."""

import struct

LANES = 64
BLOCK_TAIL_WORDS = 16 + 16  # hardware registers, trap temporaries
UNUSED_WORDS = 16
FIRST_WAVE = 0x20000
FAULT_BITS = (0x100, 0x800, 0x900)


class RandomArea:
  """`bytes` is the image. `banks` holds, for every wave, the offset of its VGPRs in the area and
  their size in bytes."""

  def __init__(self, rng, granule, pcs):
    self._rng = rng
    self._granule = granule
    self._pcs = pcs
    self.banks = []
    self._stack = list(struct.unpack('<2I', rng.randbytes(8)))
    self._blocks = []  # first wave first
    self._bank_sizes = []
    self._vgprs = self._sgprs = self._lds = 0
    self._saved_lds = 0  # words of LDS that the last first wave of a group saved
    for _ in range(rng.choice([0, 1, 2, 2, 3])):
      self._add_group()
    self._build()

  def _add_group(self):
    rng = self._rng
    self._add_skipped_words()
    if self._vgprs or rng.random() < 0.9:  # waves before any state record have no registers
      self._add_state_record()
    for index in range(rng.choice([0, 1, 1, 2, 3, 4])):
      is_first = rng.random() < (0.9 if index == 0 else 0.1)
      self._add_wave(is_first)
      self._add_skipped_words()

  def _add_skipped_words(self):
    rng = self._rng
    while rng.random() < 0.15:
      self._stack.append(rng.getrandbits(30) | rng.choice([0x40000000, 0xC0000000]))

  def _add_state_record(self):
    rng = self._rng
    vgpr_field = rng.choice([0, 0, 1, 2, 3, 5, rng.randrange(16), rng.randrange(64)])
    if self._granule == 8:
      vgpr_field = min(vgpr_field, rng.choice([7, 15, 63]))
    sgpr_field = rng.randrange(8)
    lds_field = rng.choice([0, 0, 1, 2, rng.randrange(16)])
    if rng.random() < 0.01:
      lds_field = 0x1FF
    rest = rng.getrandbits(12) << 18
    self._stack.append(0x80000000 | rest | lds_field << 9 | sgpr_field << 6 | vgpr_field)
    self._vgprs = (vgpr_field + 1) * self._granule
    self._sgprs = sgpr_field * 16
    self._lds = lds_field * 128

  def _add_wave(self, is_first):
    rng = self._rng
    # A wave that is not the first shares the LDS saved before it, which must be large enough. A
    # group without LDS before it leaves nothing to share, whatever the size.
    is_first = is_first or 0 < self._saved_lds < self._lds
    if is_first:
      self._saved_lds = self._lds
    garbage = rng.getrandbits(30) & ~FIRST_WAVE
    self._stack.append(garbage | (FIRST_WAVE if is_first else 0))
    lds_words = self._lds if is_first else 0
    words = self._vgprs * LANES + self._sgprs + BLOCK_TAIL_WORDS + lds_words + UNUSED_WORDS
    block = bytearray(rng.randbytes(4 * words))
    hwregs = 4 * (self._vgprs * LANES + self._sgprs)
    self._set_registers(block, hwregs)
    self._blocks.append(bytes(block))
    self._bank_sizes.append(4 * self._vgprs * LANES)

  def _set_registers(self, block, hwregs):
    rng = self._rng
    struct.pack_into('<Q', block, hwregs + 4 * 1, rng.choice(self._pcs))
    trapsts = rng.getrandbits(32) & ~0x900
    if rng.random() < 0.2:
      trapsts |= rng.choice(FAULT_BITS)
    struct.pack_into('<I', block, hwregs + 4 * 6, trapsts)
    if rng.random() < 0.2:
      struct.pack_into('<I', block, hwregs + 4 * 10, 0)  # HW_ID
    trap_pc = rng.choice(self._pcs)
    ttmps = hwregs + 4 * 16
    struct.pack_into('<I', block, ttmps + 4 * 7, trap_pc & 0xFFFFFFFF)
    ttmp11 = rng.getrandbits(32) & ~(0xFFFF << 7) | (trap_pc >> 32 & 0xFFFF) << 7
    struct.pack_into('<I', block, ttmps + 4 * 11, ttmp11)

  def _control_stack(self):
    rng = self._rng
    stack = struct.pack('<%dI' % len(self._stack), *self._stack)
    if rng.random() < 0.1:
      stack += rng.randbytes(rng.randrange(1, 4))  # a part of a word does not count
    if not self._blocks and rng.random() < 0.3:
      stack = stack[:rng.choice([0, 4, 8])]
    return stack

  def _room(self, kind):
    """How many bytes the header claims beyond what the waves take; 0 in a sound area."""
    if kind == 'too large':
      return 4 * self._rng.randrange(1, 40)
    if kind == 'too small' and self._blocks:
      return -4 * self._rng.randrange(1, 16)
    return 0

  def _build(self):
    rng = self._rng
    kind = rng.choice(['sound'] * 27 + ['too large', 'too small', 'wrong address'])
    stack = self._control_stack()
    blocks = b''.join(reversed(self._blocks))
    room = self._room(kind)
    # Blocks that take more than the header claims reach down into the control stack, and must not
    # reach below the area.
    slack = rng.choice([0, 0, 4, 48, rng.randrange(200)]) + max(0, -room)
    stack_offset = 16 + slack
    state_size = len(blocks) + room
    state_offset = stack_offset + len(stack) + state_size

    area = bytearray(rng.randbytes(state_offset))
    area[state_offset - len(blocks):] = blocks
    area[stack_offset:stack_offset + len(stack)] = stack
    if kind == 'wrong address':
      state_size = (state_size + rng.choice([4, 1, -4])) & 0xFFFFFFFF
    struct.pack_into('<4I', area, 0, stack_offset, len(stack), state_offset, state_size)
    area += rng.randbytes(rng.choice([0, 0, 64, rng.randrange(300)]))
    self.bytes = bytes(area)

    top = state_offset
    for block, bank_size in zip(self._blocks, self._bank_sizes):
      top -= len(block)
      self.banks.append((top, bank_size))
