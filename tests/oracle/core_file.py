"""The records of a core file, read field by field at their offsets.

Everything is little-endian. An offset in the file counts from the file's first byte. Bytes that a
read asks for past the end of the file are zero.
"""

import mmap
import os
import struct

MAGIC_V0 = 0x20220519
MAGIC_V1 = 0x4443584F  # "OXCD"

REASON_QUEUE_ERROR = 0
REASON_VM_FAULT = 1
REASON_SIGNAL = 2

QUEUE_TYPE_SDMA = 1
QUEUE_TYPE_COMPUTE_AQL = 2

GFX_VERSION_HERON = 0x90106

# One row per chip, in the order of the device ids, which start at 0x5001.
GFX_VERSIONS = ([0x90006] * 7 + [0x90106] * 7 + [0x90106] * 2 + [0x90206] * 2 +
                [0x90208, 0x90306, 0x90308])
FIRST_DEVICE_ID = 0x5001

AGENT_SIZE = 1112
QUEUE_SIZE = 144
CODE_OBJECT_SIZE = 64
KERNEL_SIZE = 1032
WAVE_SIZE = 69696


class NotACoreFile(Exception):
  """The first word is that of no known header; it is the exception's argument."""


def find_gfx_ip(device_id):
  """The gfx version of the chip, as major << 16 | minor << 8 | stepping; 0 for an unknown one."""
  row = (device_id & 0xFFFF) - FIRST_DEVICE_ID
  if 0 <= row < len(GFX_VERSIONS):
    return GFX_VERSIONS[row]
  return 0


class Image:
  """The bytes of the whole file."""

  def __init__(self, path):
    with open(path, 'rb') as stream:
      self.size = os.fstat(stream.fileno()).st_size
      self.map = mmap.mmap(stream.fileno(), 0, access=mmap.ACCESS_READ)

  def bytes(self, offset, size):
    return self.map[offset:offset + size].ljust(size, b'\0')

  def u16(self, offset):
    return struct.unpack('<H', self.bytes(offset, 2))[0]

  def u32(self, offset):
    return struct.unpack('<I', self.bytes(offset, 4))[0]

  def i32(self, offset):
    return struct.unpack('<i', self.bytes(offset, 4))[0]

  def u64(self, offset):
    return struct.unpack('<Q', self.bytes(offset, 8))[0]

  def words(self, offset, count):
    return struct.unpack('<%dI' % count, self.bytes(offset, 4 * count))

  def text(self, offset, width):
    """The bytes before the first zero byte of a text field."""
    return self.bytes(offset, width).split(b'\0', 1)[0]

  def open_text(self, offset):
    """The bytes before the first zero byte after `offset`, however far that is."""
    end = self.map.find(b'\0', offset)
    return self.map[offset:] if end < 0 else self.map[offset:end]


class Reason:

  def __init__(self, image, offset):
    self.reason = image.u32(offset)
    self.agent_name = image.text(offset + 4, 64)
    self.node_id = image.u32(offset + 68)
    self.fault_reason_mask = image.u32(offset + 72)
    self.virtual_address = image.u64(offset + 80)
    self.status = image.u32(offset + 88)
    self.ring_addr = image.u64(offset + 96)
    self.sig = image.i32(offset + 104)


class Agent:

  def __init__(self, image, offset):
    self.name = image.text(offset, 1024)
    self.gpu_id = image.u32(offset + 1024)
    self.node_id = image.u32(offset + 1028)
    self.drm_id = image.u32(offset + 1032)
    self.pci_domain_id = image.u32(offset + 1040)
    self.pci_bus_id = image.u32(offset + 1044)
    self.pci_device_id = image.u32(offset + 1048)
    self.chip_id = image.u32(offset + 1052)
    self.is_dp4x = image.bytes(offset + 1056, 1) != b'\0'
    self.num_cus = image.u32(offset + 1060)
    self.max_engine_freq = image.u32(offset + 1064)
    self.max_memory_freq = image.u32(offset + 1068)
    self.waves_per_cu = image.u32(offset + 1072)
    self.num_simds_per_cu = image.u32(offset + 1076)
    self.num_ses = image.u32(offset + 1080)
    self.handle = image.u64(offset + 1088)
    self.wave_offset = image.u64(offset + 1096)
    self.wave_count = image.u64(offset + 1104)

  @property
  def gfx_version(self):
    return find_gfx_ip(self.chip_id)


class Queue:

  def __init__(self, image, offset):
    self.queue_id = image.u32(offset)
    self.gpu_id = image.u32(offset + 8)
    self.queue_type = image.u32(offset + 12)
    self.queue_format = image.u32(offset + 16)
    self.eop_address = image.u64(offset + 24)
    self.eop_size = image.u64(offset + 32)
    self.mqd_address = image.u64(offset + 40)
    self.doorbell_offset = image.u64(offset + 48)
    self.ring_address = image.u64(offset + 56)
    self.ring_size = image.u64(offset + 64)
    self.wptr_address = image.u64(offset + 72)
    self.rptr_address = image.u64(offset + 80)
    self.wptr_value = image.u64(offset + 88)
    self.rptr_value = image.u64(offset + 96)
    self.ring_offset = image.u64(offset + 104)
    self.context_sr_address = image.u64(offset + 112)
    self.context_sr_size = image.u64(offset + 120)
    self.control_stack_size = image.u64(offset + 128)
    self.context_offset = image.u64(offset + 136)


class Kernel:

  def __init__(self, image, offset):
    self.loaded_addr = image.u64(offset)
    self.name = image.text(offset + 8, 1024)


class CodeObject:

  def __init__(self, image, offset):
    self.addr_loaded = image.u64(offset)
    self.size_loaded = image.u64(offset + 8)
    self.size_elf = image.u64(offset + 24)
    self.agent_handle = image.u64(offset + 32)
    first_kernel = image.u64(offset + 40)
    kernel_count = image.u64(offset + 48)
    self.elf_offset = image.u64(offset + 56)
    self.kernels = [Kernel(image, first_kernel + i * KERNEL_SIZE) for i in range(kernel_count)]
    # Set by the run: the file name in the code directory and the agent's name.
    self.name = b''
    self.agent_name = b''


class RecordedWave:
  """A wave that the runtime recorded itself; its register arrays are read in place."""

  def __init__(self, image, offset):
    (self.mode, self.status, self.trapsts, self.hw_id, self.gpr_alloc, self.lds_alloc,
     self.ib_sts, pc_lo, pc_hi) = image.words(offset, 9)
    self.m0, exec_lo, exec_hi = image.words(offset + 52, 3)
    self.pc = pc_hi << 32 | pc_lo
    self.exec = exec_hi << 32 | exec_lo
    # The VGPR slots, 256 a lane, with the SGPRs right behind them: a VGPR count above 256 reaches
    # from the last lane into the SGPRs.
    self.registers = image.words(offset + 64, 16384 + 1024)
    self.sgprs = self.registers[16384:]


class CoreFile:

  def __init__(self, path):
    image = self.image = Image(path)
    magic = image.u32(0)
    if magic == MAGIC_V0:
      first_field = 8
      self.full_version = 0
      self.dp4x_vgpr_offset = 0x1545000
    elif magic == MAGIC_V1:
      first_field = 16
      major, minor, patch = image.words(4, 3)
      self.full_version = (major << 16 | minor << 8 | patch) & 0xFFFFFFFF
      self.dp4x_vgpr_offset = 0x155A000
    else:
      raise NotACoreFile(magic)
    (fault_offset, _, agent_offset, agent_count, queue_offset, queue_count, object_offset,
     object_count, env_offset) = struct.unpack('<9Q', image.bytes(first_field, 72))
    self.reason = Reason(image, fault_offset)
    self.agents = [Agent(image, agent_offset + i * AGENT_SIZE) for i in range(agent_count)]
    self.queues = [Queue(image, queue_offset + i * QUEUE_SIZE) for i in range(queue_count)]
    self.code_objects = [
        CodeObject(image, object_offset + i * CODE_OBJECT_SIZE) for i in range(object_count)
    ]
    self.environment = image.open_text(env_offset)

  @property
  def has_header_backup(self):
    return self.full_version > 0x100FF

  def queue_id_by_ring(self, ring_address):
    for queue in self.queues:
      if queue.ring_address == ring_address:
        return queue.queue_id
    return 0xFFFFFFFF

  def kernel_at(self, address):
    for code_object in self.code_objects:
      for kernel in code_object.kernels:
        if kernel.loaded_addr == address:
          return kernel
    return None

  def code_object_with_kernel_at(self, address):
    for code_object in self.code_objects:
      for kernel in code_object.kernels:
        if kernel.loaded_addr == address:
          return code_object
    return None

  def code_object_at(self, pc):
    for code_object in self.code_objects:
      if code_object.addr_loaded <= pc < code_object.addr_loaded + code_object.size_loaded:
        return code_object
    return None
