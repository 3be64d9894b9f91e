"""AQL ring slots of 64 bytes, one text each."""

from core_file import QUEUE_TYPE_COMPUTE_AQL, QUEUE_TYPE_SDMA
from output_tree import log_error, signed32, write_binary, write_text
from sdma_packets import sdma_text

SLOT_SIZE = 64
KERNEL_ARGUMENTS_SIZE = 4096

INVALID = 1
KERNEL_DISPATCH = 2
BARRIER_AND = 3
AGENT_DISPATCH = 4
BARRIER_OR = 5
RESERVED = 6

FORMATS = [
    b'VENDOR_SPECIFIC', b'INVALID', b'KERNEL_DISPATCH', b'BARRIER_AND', b'AGENT_DISPATCH',
    b'BARRIER_OR', b'RESERVED'
]
FENCE_SCOPES = [b'SCOPE_NONE', b'SCOPE_AGENT', b'SCOPE_SYSTEM', b'SCOPE_RESERVED']


def effective_header(core, slot, backup_header):
  """The header that the slot had before it was retired, and whether it was."""
  image = core.image
  header = image.u16(slot)
  if header & 0xF != INVALID:
    return header, False
  if backup_header == 0 and image.u32(slot + 48) == 0:
    return header, False
  if core.has_header_backup:
    return backup_header & 0xFFFF, True
  return image.u64(slot + 48) & 0xFFFF, True


def header_text(aql_type, header, is_complete):
  text = b'header format: ' + FORMATS[aql_type]
  if is_complete:
    text += b' (complete)'
  text += b'\n'
  text += b'header barrier: %d\n' % (header >> 8 & 1)
  text += b'header acquire_fence_scope: %s\n' % FENCE_SCOPES[header >> 9 & 3]
  text += b'header release_fence_scope: %s\n' % FENCE_SCOPES[header >> 11 & 3]
  return text


def kernel_dispatch_text(core, memory, slot, queue_dir):
  """Also writes the arguments of a kernel that the core file names."""
  image = core.image
  kernel_object = image.u64(slot + 32)
  kernarg_address = image.u64(slot + 40)
  text = b'dimensions: %d\n' % (image.u16(slot + 2) & 3)
  text += b'workgroup_size_x: %d\n' % image.u16(slot + 4)
  text += b'workgroup_size_y: %d\n' % image.u16(slot + 6)
  text += b'workgroup_size_z: %d\n' % image.u16(slot + 8)
  text += b'grid_size_x: %d\n' % image.i32(slot + 12)
  text += b'grid_size_y: %d\n' % image.i32(slot + 16)
  text += b'grid_size_z: %d\n' % image.i32(slot + 20)
  text += b'private_segment_size_bytes: %d\n' % image.i32(slot + 24)
  text += b'group_segment_size_bytes : %d\n' % image.i32(slot + 28)
  text += b'kernel_object: 0X%X\n' % kernel_object
  text += b'kernarg_address: 0X%X\n' % kernarg_address
  text += b'completion_signal: 0X%X\n' % image.u64(slot + 56)
  kernel = core.kernel_at(kernel_object)
  if kernel is not None:
    text += b'kernel_name: ' + kernel.name + b'\n'
    arguments = memory.read(kernarg_address, KERNEL_ARGUMENTS_SIZE)
    if arguments:
      write_binary(queue_dir, kernel.name + b'_args', arguments)
  code_object = core.code_object_with_kernel_at(kernel_object)
  if code_object is not None:
    text += b'object_name: ' + code_object.name + b'\n'
  return text


def barrier_text(image, slot):
  text = b''
  for i in range(5):
    text += b'dep_signal[%d]: 0X%X\n' % (i, image.u64(slot + 8 + 8 * i))
  return text + b'completion_signal: 0X%X\n' % image.u64(slot + 56)


def agent_dispatch_text(image, slot):
  text = b'type: %d\n' % image.u16(slot + 2)
  text += b'return_address: 0X%X\n' % image.u64(slot + 8)
  for i in range(4):
    text += b'arg[%d]: 0X%X\n' % (i, image.u64(slot + 16 + 8 * i))
  return text + b'completion_signal: 0X%X\n' % image.u64(slot + 56)


def raw_text(image, slot):
  text = b''
  for line in range(4):
    for word in range(8):
      text += b'0X%04X ' % image.u16(slot + 16 * line + 2 * word)
    text += b'\n'
  return text


def slot_text(core, memory, slot, backup_header, queue_dir):
  header, is_complete = effective_header(core, slot, backup_header)
  aql_type = min(header & 0xF, RESERVED)
  text = header_text(aql_type, header, is_complete)
  if aql_type == KERNEL_DISPATCH:
    return text + kernel_dispatch_text(core, memory, slot, queue_dir)
  if aql_type in (BARRIER_AND, BARRIER_OR):
    return text + barrier_text(core.image, slot)
  if aql_type == AGENT_DISPATCH:
    return text + agent_dispatch_text(core.image, slot)
  return text + raw_text(core.image, slot)


def dump_aql_packets(core, memory, queue, queue_dir):
  text = b''
  backup = queue.ring_offset + queue.ring_size
  for i in range(signed32(queue.ring_size >> 6)):
    text += b'\npacket index: %d\n' % i
    backup_header = core.image.u32(backup + 4 * i) if core.has_header_backup else 0
    text += slot_text(core, memory, queue.ring_offset + SLOT_SIZE * i, backup_header, queue_dir)
  if not write_text(queue_dir, b'packets', text, append=True):
    return False
  return write_binary(queue_dir, b'aql_rb', core.image.bytes(queue.ring_offset, queue.ring_size))


def dump_sdma_packets(core, queue, queue_dir):
  text = sdma_text(core.image, queue.ring_offset, signed32(queue.ring_size))
  if not write_text(queue_dir, b'packets', text, append=True):
    return False
  return write_binary(queue_dir, b'sdma_rb', core.image.bytes(queue.ring_offset, queue.ring_size))


def dump_packets(core, memory, queue, queue_dir):
  if queue.queue_type == QUEUE_TYPE_COMPUTE_AQL:
    if not dump_aql_packets(core, memory, queue, queue_dir):
      log_error(b'dump aql packet failed\n')
      return False
  if queue.queue_type == QUEUE_TYPE_SDMA:
    if not dump_sdma_packets(core, queue, queue_dir):
      log_error(b'dump sdma packet failed\n')
      return False
  return True
