"""The SDMA ring as a stream of packets of varying length.

A packet is a list of lines. A line is a format, the dword that its value comes from and the highest
and lowest bit of the value in it.
"""

from output_tree import signed32


def _op(name):
  return (b'op: ' + name + b' (%d)', 0, 7, 0)


def _bits(label, dword, high, low):
  return (label + b': %d', dword, high, low)


def _decimal(label, dword):
  return (label + b': %d', dword, 31, 0)


def _hex(label, dword):
  return (label + b': 0X%X', dword, 31, 0)


_SUBOP = _bits(b'subop', 0, 15, 8)

_COPY_LINEAR = [
    _op(b'COPY'),
    (b'subop: COPY LINEAR (%d)', 0, 15, 8),
    _bits(b'extra_info', 0, 31, 16),
    _bits(b'count', 1, 21, 0),
    _bits(b'dst_swap', 2, 17, 16),
    _bits(b'src_swap', 2, 25, 24),
    _hex(b'src_addr_lo', 3),
    _hex(b'src_addr_hi', 4),
    _hex(b'dst_addr_lo', 5),
    _hex(b'dst_addr_hi', 6),
]

_COPY_LINEAR_RECT = [
    _op(b'COPY'),
    (b'subop: COPY LINEAR RECT (%d)', 0, 15, 8),
    _bits(b'element', 0, 31, 29),
    _hex(b'src_addr_lo', 1),
    _hex(b'src_addr_hi', 2),
    _bits(b'src_offset_x', 3, 13, 0),
    _bits(b'src_offset_y', 3, 29, 16),
    _bits(b'src_offset_z', 4, 10, 0),
    _bits(b'src_pitch', 4, 31, 13),
    _bits(b'src_slice_pitch', 5, 27, 0),
    _hex(b'dst_addr_lo', 6),
    _hex(b'dst_addr_hi', 7),
    _bits(b'dst_offset_x', 8, 13, 0),
    _bits(b'dst_offset_y', 8, 29, 16),
    _bits(b'dst_offset_z', 9, 10, 0),
    _bits(b'dst_pitch', 9, 31, 13),
    _bits(b'dst_slice_pitch', 10, 27, 0),
    _bits(b'rect_x', 11, 13, 0),
    _bits(b'rect_y', 11, 29, 16),
    _bits(b'rect_z', 12, 10, 0),
    _bits(b'dst_swap', 12, 17, 16),
    _bits(b'src_swap', 12, 25, 24),
]

_FENCE = [
    _op(b'FENCE'),
    _SUBOP,
    _bits(b'mtype', 0, 18, 16),
    _bits(b'gcc', 0, 19, 19),
    _bits(b'sys', 0, 20, 20),
    _bits(b'pad1', 0, 21, 21),
    _bits(b'snp', 0, 22, 22),
    _bits(b'gpa', 0, 23, 23),
    _bits(b'l2_policy', 0, 25, 24),
    _hex(b'addr_lo', 1),
    _hex(b'addr_hi', 2),
    _decimal(b'data', 3),
]

_TRAP = [
    _op(b'TRAP'),
    _SUBOP,
    _bits(b'int_ctx', 1, 27, 0),
]

_POLL_REGMEM = [
    _op(b'POLL REGMEM'),
    _SUBOP,
    _bits(b'hdp_flush', 0, 26, 26),
    _bits(b'func', 0, 30, 28),
    _bits(b'mem_poll', 0, 31, 31),
    _hex(b'addr_lo', 1),
    _hex(b'addr_hi', 2),
    _decimal(b'value', 3),
    _decimal(b'mask', 4),
    _bits(b'interval', 5, 15, 0),
    _bits(b'retry_count', 5, 27, 16),
]

_ATOMIC = [
    _op(b'ATOMIC'),
    _SUBOP,
    _bits(b'l', 0, 16, 16),
    _bits(b'operation', 0, 31, 25),
    _hex(b'addr_lo', 1),
    _hex(b'addr_hi', 2),
    _hex(b'src_data_lo', 3),
    _hex(b'src_data_hi', 4),
    _decimal(b'cmp_data_lo', 5),
    _decimal(b'cmp_data_hi', 6),
    _bits(b'loop_interval', 7, 12, 0),
]

_CONSTANT_FILL = [
    _op(b'CONST FILL'),
    _SUBOP,
    _bits(b'sw', 0, 17, 16),
    _bits(b'fillsize', 0, 31, 30),
    _hex(b'dst_addr_lo', 1),
    _hex(b'dst_addr_hi', 2),
    _decimal(b'data', 3),
    _bits(b'count', 4, 21, 0),
]

_TIMESTAMP = [
    _op(b'TIMESTAMP'),
    _SUBOP,
    _hex(b'addr_lo', 1),
    _hex(b'addr_hi', 2),
]

# The op: the packet's size in bytes and its lines. COPY, op 1, is told apart by its subop.
_PACKETS = {
    5: (16, _FENCE),
    6: (8, _TRAP),
    8: (24, _POLL_REGMEM),
    10: (32, _ATOMIC),
    11: (20, _CONSTANT_FILL),
    13: (12, _TIMESTAMP),
}


def _packet(op, subop):
  if op == 1:
    return (28, _COPY_LINEAR) if subop == 0 else (52, _COPY_LINEAR_RECT)
  return _PACKETS.get(op)


def sdma_text(image, ring, size):
  """Every packet from the ring's first byte on. A packet that begins in the ring's last bytes is
  read with all its dwords, from what follows the ring in the file."""
  text = b''
  offset = 0
  index = 0
  while offset < size:
    text += b'packet sub index: %d\n' % index
    header = image.u32(ring + offset)
    packet = _packet(header & 0xFF, header >> 8 & 0xFF)
    if packet is None:
      text += b'Invalid sdma packet'
      offset += 4
    else:
      length, lines = packet
      for line, dword, high, low in lines:
        value = image.u32(ring + offset + 4 * dword) >> low & ((1 << (high - low + 1)) - 1)
        text += line % (signed32(value) if line.endswith((b'%d', b'(%d)')) else value) + b'\n'
      offset += length
    text += b'\n'
    index += 1
  return text + b'\n'
