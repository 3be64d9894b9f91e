"""Random ring buffers: AQL slots with their header backup words, and SDMA packet streams."""

import struct

SLOT_SIZE = 64

# The op, the subop where it tells packets apart, and the packet's dwords.
SDMA_PACKETS = [(1, 0, 7), (1, 1, 13), (1, 4, 13), (5, None, 4), (6, None, 2), (8, None, 6),
                (10, None, 8), (11, None, 5), (13, None, 3)]


def random_u64(rng):
  """Small, address-like or any."""
  return rng.choice([0, rng.getrandbits(8), rng.getrandbits(47), rng.getrandbits(64)])


class AqlRing:
  """The ring's bytes, and one backup word a slot."""

  def __init__(self, rng, kernel_addresses, argument_addresses):
    self._rng = rng
    self._kernel_addresses = kernel_addresses
    self._argument_addresses = argument_addresses
    slot_count = rng.choice([0, 1, 2, 4, 8, 16, rng.randrange(24)])
    slots = [self._slot() for _ in range(slot_count)]
    self.ring = b''.join(slots)
    if rng.random() < 0.15:
      self.ring += rng.randbytes(rng.randrange(1, SLOT_SIZE))
    self.backup = [self._backup_word() for _ in slots]

  def _packet_type(self):
    rng = self._rng
    return rng.choice([0, 1, 1, 1, 2, 2, 2, 2, 3, 4, 5, 6, rng.randrange(7, 16)])

  def _header(self, packet_type):
    rng = self._rng
    # Bits 7..4 belong to the type but carry nothing; a fence scope has four values.
    high = rng.choice([0, rng.getrandbits(12)]) & 0xFFF
    fences = rng.getrandbits(5) << 8
    return (high << 4 if rng.random() < 0.2 else fences) & 0xFFF0 | packet_type

  def _backup_word(self):
    rng = self._rng
    if rng.random() < 0.2:
      return 0
    if rng.random() < 0.1:
      return rng.getrandbits(16) << 16
    return self._header(self._packet_type()) | rng.choice([0, rng.getrandbits(16)]) << 16

  def _slot(self):
    rng = self._rng
    slot = bytearray(rng.randbytes(SLOT_SIZE))
    struct.pack_into('<H', slot, 0, self._header(self._packet_type()))
    self._make_dispatch(slot)
    if rng.random() < 0.3:
      # Like slots that few fields of were ever written.
      for offset in range(8, SLOT_SIZE, 8):
        if rng.random() < 0.5 and offset not in (32, 40):
          struct.pack_into('<Q', slot, offset, rng.getrandbits(8))
    struct.pack_into('<Q', slot, 48, self._reserved_word())
    return bytes(slot)

  def _make_dispatch(self, slot):
    """Whatever the slot is now, it may have been a dispatch before it was retired."""
    rng = self._rng
    if self._kernel_addresses and rng.random() < 0.8:
      near_miss = rng.choice([0] * 9 + [1])
      address = rng.choice(self._kernel_addresses) + near_miss
      struct.pack_into('<Q', slot, 32, address & 0xFFFFFFFFFFFFFFFF)
    if self._argument_addresses and rng.random() < 0.8:
      struct.pack_into('<Q', slot, 40, rng.choice(self._argument_addresses))

  def _reserved_word(self):
    """Where retired packets of older runtimes keep their header."""
    rng = self._rng
    header = self._header(self._packet_type())
    return rng.choice([
        0, 0, header, header | rng.getrandbits(48) << 16,
        rng.getrandbits(16) << 16,
        rng.getrandbits(32) << 32,
    ])


def random_sdma_ring(rng):
  ring = b''
  for _ in range(rng.choice([0, 1, 4, 12, rng.randrange(30)])):
    if rng.random() < 0.2:
      ring += struct.pack('<I', rng.choice([0, 0, 2, rng.getrandbits(32)]))
      continue
    op, subop, dwords = rng.choice(SDMA_PACKETS)
    packet = bytearray(rng.randbytes(4 * dwords))
    packet[0] = op
    if subop is not None:
      packet[1] = subop
    if rng.random() < 0.2:
      packet[4:] = bytes(len(packet) - 4)
    ring += packet
  if rng.random() < 0.3:
    # The last packet goes on behind the ring.
    ring = ring[:len(ring) - rng.randrange(40)]
  return ring
