#!/usr/bin/env python3
"""Makes a random, well-formed core file and its memory directory from a seed.

Every field is placed by its offset and width; nothing is shared with any reader. The file holds
random bytes wherever no record or image lies, so that a read that strays shows.
"""

import argparse
import os
import random
import struct

from random_context_area import RandomArea
from random_memory import RandomMemory
from random_rings import AqlRing, random_sdma_ring, random_u64

AGENT_SIZE = 1112
QUEUE_SIZE = 144
CODE_OBJECT_SIZE = 64
KERNEL_SIZE = 1032
WAVE_SIZE = 69696
REASON_SIZE = 112

FIRST_DEVICE_ID = 0x5001
CHIPS = 21
HERON_CHIPS = range(FIRST_DEVICE_ID + 7, FIRST_DEVICE_ID + 16)

SECOND_BANK_V0 = 0x1545000
SECOND_BANK_V1 = 0x155A000

SIGNAL = 2
SDMA = 1
COMPUTE_AQL = 2

STATUSES = [41, 42, 4097, 4099, 4104, 4105, 4109, 4111, 4112, 4118, 0, 1, 4096, 0xFFFFFFFF]
VERSIONS = [(1, 0, 0), (1, 0, 255), (1, 1, 0), (1, 1, 0), (1, 1, 0), (1, 0, 256), (1, 2, 3),
            (2, 0, 0), (0, 255, 255), (0, 0, 0)]
AGENT_NAMES = [
    b'gpu-gfx906', b'gpu-gfx926', b'ORVEN-gfx936', b'gpu-gfxORVEN', b'ORVEN', b'', b'gpu',
    b'1234567', b'12345678', b'gpu-gfx 928:sramecc+', b'gpu-gfx-5', b'gpu-gfx+916', b'xx ORVEN906',
    b'gpu-gfx906 \xc3\xa9\xff', b'gpu-gfx\t\n77', b'g' * 900
]


def text_field(rng, text, width):
  """The bytes behind the end of a text mean nothing."""
  return (text + b'\0').ljust(width, b'\0') if rng.random() < 0.5 else (
      text + b'\0' + rng.randbytes(width))[:width]


class Region:
  """Bytes that will lie somewhere in the file; `offset` is known once all are placed."""

  def __init__(self, contents):
    self.contents = bytearray(contents)
    self.offset = None


class Agent:

  def __init__(self, rng, index):
    self.name = rng.choice(AGENT_NAMES)
    self.gpu_id = rng.choice([100 + index, 100 + index, 100 + index, 100, rng.getrandbits(32)])
    self.node_id = rng.choice([1 + index, 1 + index, 1 + index, 1, rng.getrandbits(32)])
    self.handle = rng.choice([0x1000 * (1 + index), 0x1000 * (1 + index), rng.getrandbits(64)])
    self.chip_id = FIRST_DEVICE_ID + rng.randrange(CHIPS)
    if rng.random() < 0.15:
      self.chip_id = rng.choice([0, 0x5000, FIRST_DEVICE_ID + CHIPS, rng.getrandbits(32)])
    if rng.random() < 0.1:
      self.chip_id |= rng.getrandbits(16) << 16
    self.is_dp4x = rng.random() < (0.7 if self.is_heron else 0.4)
    self.wave_count = 0
    self.waves = None  # a region

  @property
  def is_heron(self):
    return self.chip_id & 0xFFFF in HERON_CHIPS

  @property
  def vgpr_granule(self):
    return 8 if self.is_dp4x and not self.is_heron else 4

  def record(self, rng):
    record = bytearray(AGENT_SIZE)
    record[:1024] = text_field(rng, self.name, 1024)
    pci = [rng.choice([rng.getrandbits(5), rng.getrandbits(32)]) for _ in range(3)]
    struct.pack_into('<8I', record, 1024, self.gpu_id, self.node_id,
                     rng.choice([0x80, rng.getrandbits(32)]), rng.getrandbits(32), *pci,
                     self.chip_id)
    record[1056] = self.is_dp4x
    record[1057:1060] = rng.randbytes(3)
    counts = [rng.choice([4, 64, 1801, rng.getrandbits(32)]) for _ in range(6)]
    struct.pack_into('<6I', record, 1060, *counts)
    wave_offset = self.waves.offset if self.waves else rng.getrandbits(64)
    struct.pack_into('<QQQ', record, 1088, self.handle, wave_offset, self.wave_count)
    return record


class CodeObject:

  def __init__(self, rng, agents, base):
    self.addr_loaded = base
    self.size_loaded = rng.choice([0x1000, 0x10000, rng.randrange(1, 0x8000)])
    self.agent_handle = rng.choice([agent.handle for agent in agents] + [rng.getrandbits(64)])
    self.elf = Region(rng.randbytes(rng.randrange(1, 3000)))
    self.kernels = []
    for _ in range(rng.randrange(4)):
      address = self.addr_loaded + rng.choice([0, 0x100, 0x200, rng.randrange(self.size_loaded)])
      self.kernels.append((address, self._kernel_name(rng)))
    self.kernel_table = Region(bytes(KERNEL_SIZE * len(self.kernels)))

  @staticmethod
  def _kernel_name(rng):
    # Names that are file names: of the others the program writes no arguments and says so.
    return rng.choice([
        b'vec_add', b'_Z6kernelPf.kd', b'copy', b'two words', b'\xe6\xa0\xb8', b'line\nfeed',
        b'k' * 250, b'k%d' % rng.randrange(100)
    ])

  def fill_kernel_table(self, rng):
    for i, (address, name) in enumerate(self.kernels):
      struct.pack_into('<Q', self.kernel_table.contents, i * KERNEL_SIZE, address)
      start = i * KERNEL_SIZE + 8
      self.kernel_table.contents[start:start + 1024] = text_field(rng, name, 1024)

  def record(self, rng):
    kernel_offset = self.kernel_table.offset if self.kernels else rng.getrandbits(64)
    return struct.pack('<8Q', self.addr_loaded, self.size_loaded, rng.getrandbits(64),
                       len(self.elf.contents), self.agent_handle, kernel_offset,
                       len(self.kernels), self.elf.offset)


class Queue:

  def __init__(self, rng, index, owner):
    self.queue_id = rng.choice([index, index, index, 10 + index, 3, rng.getrandbits(32)])
    self.gpu_id = owner.gpu_id if owner else 7
    self.queue_type = rng.choice([COMPUTE_AQL] * 5 + [SDMA, SDMA, 0, 3, 4 + rng.getrandbits(20)])
    self.queue_format = rng.choice([0, 1, 1, 1, 2, rng.getrandbits(32)])
    self.ring_address = rng.getrandbits(47)
    self.ring_size = 0
    self.ring = None     # a region; the header backup array behind the ring belongs to it
    self.context = None  # likewise
    self.context_size = 0
    self.second_banks = []  # (offset in the area, size) of the VGPRs that have a second bank

  def record(self, rng):
    record = bytearray(rng.randbytes(QUEUE_SIZE))  # is_suspended and the padding mean nothing here
    struct.pack_into('<I', record, 0, self.queue_id)
    struct.pack_into('<3I', record, 8, self.gpu_id, self.queue_type, self.queue_format)
    fields = [random_u64(rng) for _ in range(10)]
    struct.pack_into('<10Q', record, 24, *fields)
    struct.pack_into('<QQ', record, 56, self.ring_address, self.ring_size)
    struct.pack_into('<QQQQQ', record, 104, self.ring.offset, random_u64(rng), self.context_size,
                     random_u64(rng), self.context.offset)
    return record


class RandomCoreFile:

  def __init__(self, seed):
    rng = self._rng = random.Random(seed)
    self._header_version = rng.choice([0, 1, 1])
    self._version = rng.choice(VERSIONS)
    self._reason = rng.choice([0, 0, 1, 1, SIGNAL, SIGNAL])
    if rng.random() < 0.02:
      self._reason = rng.choice([3, 0xFFFFFFFF])
    self._is_damaged_magic = rng.random() < 0.01
    self.memory = RandomMemory(rng)
    self._agents = [Agent(rng, i) for i in range(rng.choice([0, 1, 1, 1, 1, 2, 2, 3]))]
    self._code_objects = self._make_code_objects()
    self._queues = self._make_queues()
    self._make_recorded_waves()
    self._environment = self._make_environment()
    self._reason_record = Region(self._make_reason())

  @property
  def _second_bank(self):
    return SECOND_BANK_V0 if self._header_version == 0 else SECOND_BANK_V1

  @property
  def _has_header_backup(self):
    major, minor, patch = self._version
    return self._header_version == 1 and (major << 16 | minor << 8 | patch) > 0x100FF

  def _make_code_objects(self):
    rng = self._rng
    code_objects = []
    base = 0x7F0000000000 + 0x1000 * rng.randrange(0x1000)
    for _ in range(rng.choice([0, 1, 1, 2, 3, 5])):
      code_objects.append(CodeObject(rng, self._agents, base))
      # The next one follows, leaves a gap, overlaps or lies at the same place.
      base += rng.choice([code_objects[-1].size_loaded, 0x100000, 0x200, 0])
    for code_object in code_objects[1:]:
      if rng.random() < 0.1:
        code_object.size_loaded = code_objects[0].size_loaded
    if code_objects and rng.random() < 0.02:
      code_objects[-1].elf = Region(b'')
    return code_objects

  def _pcs(self):
    """Program counters in code objects, at their edges and elsewhere."""
    rng = self._rng
    pcs = [0, rng.getrandbits(48)]
    for code_object in self._code_objects:
      start, size = code_object.addr_loaded, code_object.size_loaded
      pcs += [start, start + rng.randrange(size), start + rng.randrange(size), start + size,
              start + size - 1]
    return pcs

  def _make_queues(self):
    rng = self._rng
    queues = []
    kernel_addresses = [kernel[0] for code in self._code_objects for kernel in code.kernels]
    for index in range(rng.choice([0, 1, 2, 3, 6])):
      has_owner = self._agents and rng.random() < 0.85
      owner = rng.choice(self._agents) if has_owner else None
      queue = Queue(rng, index, owner)
      self._make_ring(queue, kernel_addresses)
      self._make_context(queue, owner)
      queues.append(queue)
    return queues

  def _make_ring(self, queue, kernel_addresses):
    rng = self._rng
    if queue.queue_type == SDMA:
      ring = random_sdma_ring(rng)
      queue.ring_size = len(ring)
      queue.ring = Region(ring)
      return
    aql = AqlRing(rng, kernel_addresses, self.memory.addresses)
    queue.ring_size = len(aql.ring)
    backup = struct.pack('<%dI' % len(aql.backup), *aql.backup) if self._has_header_backup else b''
    queue.ring = Region(aql.ring + backup)

  def _make_context(self, queue, owner):
    rng = self._rng
    # Every agent of the queue's gpu id reads the area. Only when they agree on how many VGPRs a
    # state record stands for can it hold waves that suit them all.
    readers = [agent for agent in self._agents if agent.gpu_id == queue.gpu_id]
    granules = {agent.vgpr_granule for agent in readers}
    if owner is None or len(granules) != 1:
      queue.context = Region(struct.pack('<6I', 16, 8, 24, 0, 1, 2))
    elif rng.random() < 0.02:
      queue.context = Region(b'')
    else:
      area = RandomArea(rng, owner.vgpr_granule, self._pcs())
      queue.context = Region(area.bytes)
      if self._reason != SIGNAL and any(agent.is_dp4x and agent.is_heron for agent in readers):
        queue.second_banks = area.banks
    queue.context_size = len(queue.context.contents)

  def _make_recorded_waves(self):
    rng = self._rng
    for agent in self._agents:
      if self._reason == SIGNAL or rng.random() < 0.1:
        agent.wave_count = rng.choice([0, 1, 2, 3, 5])
      if agent.wave_count > 0:
        waves = [self._recorded_wave() for _ in range(agent.wave_count)]
        agent.waves = Region(b''.join(waves))

  def _recorded_wave(self):
    rng = self._rng
    wave = bytearray(rng.randbytes(WAVE_SIZE))
    if rng.random() < 0.3:
      struct.pack_into('<I', wave, 12, 0)  # hw_id
    vgpr_size = rng.choice([0, 1, 7, 31, 32, 63, rng.randrange(64)])
    gpr_alloc = rng.getrandbits(32) & ~(0x3F << 8) | vgpr_size << 8
    struct.pack_into('<I', wave, 16, rng.choice([0, gpr_alloc, gpr_alloc, gpr_alloc]))
    struct.pack_into('<Q', wave, 28, rng.choice(self._pcs()))
    return bytes(wave)

  def _make_environment(self):
    rng = self._rng
    lines = [b'PATH=/usr/bin:/bin\n', b'HOME=/root\n', b'EMPTY=\n', b'NAME=\xff\xfe\n', b'no end']
    text = b''.join(rng.choice(lines) for _ in range(rng.randrange(8)))
    return Region(text + b'\0')

  def _make_reason(self):
    rng = self._rng
    record = bytearray(rng.randbytes(REASON_SIZE))
    agent_name = rng.choice(AGENT_NAMES + [b'n' * 63])[:63]
    struct.pack_into('<I', record, 0, self._reason)
    record[4:68] = text_field(rng, agent_name, 64)
    mask = rng.choice([0, 1 << rng.randrange(32), 0xFFFFFFFF, 0x80000003, rng.getrandbits(32)])
    struct.pack_into('<II', record, 68, rng.choice([1, 2, rng.getrandbits(32)]), mask)
    struct.pack_into('<QI', record, 80, random_u64(rng), rng.choice(STATUSES))
    rings = [queue.ring_address for queue in self._queues]
    struct.pack_into('<QI', record, 96, rng.choice(rings + [1]), rng.choice([15, 10, 2, 0]))
    return record

  def _place(self):
    """Gives every region its offset, in random order; returns the tables and the file's size."""
    rng = self._rng
    tables = {
        'agents': Region(bytes(AGENT_SIZE * len(self._agents))),
        'queues': Region(bytes(QUEUE_SIZE * len(self._queues))),
        'code_objects': Region(bytes(CODE_OBJECT_SIZE * len(self._code_objects))),
    }
    regions = [self._reason_record, self._environment, *tables.values()]
    regions += [agent.waves for agent in self._agents if agent.waves]
    for code_object in self._code_objects:
      regions += [code_object.elf, code_object.kernel_table]
    for queue in self._queues:
      regions += [queue.ring, queue.context]
    rng.shuffle(regions)
    alignment = rng.choice([1, 4, 8, 8, 4096])
    position = 88 if self._header_version == 0 else 128
    for region in regions:
      position += rng.choice([0, 0, rng.randrange(64)])
      region.offset = position = -(-position // alignment) * alignment
      position += len(region.contents)
    return tables, regions, position

  def _table_offset(self, table):
    """The offset of an empty table is not looked at."""
    return table.offset if table.contents else self._rng.getrandbits(64)

  def _header(self, tables):
    rng = self._rng
    if self._header_version == 0:
      magic = struct.pack('<II', 0x20220519, rng.choice([0, rng.getrandbits(32)]))
    else:
      magic = b'OXCD' + struct.pack('<3I', *self._version)
    if self._is_damaged_magic:
      magic = rng.randbytes(4) + magic[4:]
    fields = [self._reason_record.offset, rng.choice([REASON_SIZE, REASON_SIZE - 4])]
    for name, records in (('agents', self._agents), ('queues', self._queues),
                          ('code_objects', self._code_objects)):
      fields += [self._table_offset(tables[name]), len(records)]
    env_size = rng.choice([len(self._environment.contents), 0, rng.getrandbits(64)])
    fields += [self._environment.offset, env_size]
    header = magic + struct.pack('<10Q', *fields)
    return header if self._header_version == 0 else header + bytes(32)

  def write(self, path):
    rng = self._rng
    tables, regions, size = self._place()
    for code_object in self._code_objects:
      code_object.fill_kernel_table(rng)
    # Large enough for every second bank; the bytes between are a hole.
    file_size = size
    for queue in self._queues:
      for offset, bank_size in queue.second_banks:
        end = queue.context.offset + offset + self._second_bank + bank_size
        file_size = max(file_size, end)
    for queue in self._queues:
      if queue.second_banks and rng.random() < 0.5:
        queue.context_size = file_size - queue.context.offset
    tables['agents'].contents[:] = b''.join(agent.record(rng) for agent in self._agents)
    tables['queues'].contents[:] = b''.join(queue.record(rng) for queue in self._queues)
    tables['code_objects'].contents[:] = b''.join(
        code_object.record(rng) for code_object in self._code_objects)

    dense = bytearray(rng.randbytes(size))
    header = self._header(tables)
    dense[:len(header)] = header
    for region in regions:
      dense[region.offset:region.offset + len(region.contents)] = region.contents
    with open(path, 'wb') as stream:
      stream.write(dense)
      stream.truncate(file_size)
      self._write_second_banks(stream, size)

  def _write_second_banks(self, stream, first_free):
    rng = self._rng
    for queue in self._queues:
      for offset, bank_size in queue.second_banks:
        start = queue.context.offset + offset + self._second_bank
        if start >= first_free and rng.random() < 0.7:
          stream.seek(start)
          stream.write(rng.randbytes(bank_size))


def main():
  parser = argparse.ArgumentParser(description=__doc__)
  parser.add_argument('--seed', type=int, required=True)
  parser.add_argument('--core', required=True, help='the core file to write')
  parser.add_argument('--mem-dir', required=True, help='the memory directory to write')
  options = parser.parse_args()
  core_file = RandomCoreFile(options.seed)
  core_file.write(options.core)
  if not os.path.exists(options.mem_dir):
    core_file.memory.write(options.mem_dir)


if __name__ == '__main__':
  main()
