"""Dumped process memory: an index of regions and a snapshot file for each."""

import mmap
import re

from output_tree import log_error, signed64

_UINT64_MAX = 0xFFFFFFFFFFFFFFFF


def parse_number(token):
  """strtoull with base 0: the longest number at the start, 0 when there is none."""
  match = re.match(rb'[ \t\n\v\f\r]*([+-]?)(0[xX][0-9a-fA-F]+|0[0-7]*|[1-9][0-9]*)', token)
  if match is None:
    return 0
  digits = match[2]
  if digits[:2].lower() == b'0x':
    value = int(digits[2:], 16)
  elif digits[:1] == b'0':
    value = int(digits, 8)
  else:
    value = int(digits)
  if value > _UINT64_MAX:
    return _UINT64_MAX
  return -value & _UINT64_MAX if match[1] == b'-' else value


class Region:

  def __init__(self, addr=0, size=0, name=b''):
    self.addr = addr
    self.size = size
    self.name = name


class ProcessMemory:

  def __init__(self, directory):
    self._regions = {}
    try:
      with open(directory + b'/process_mem_info', 'rb') as stream:
        lines = stream.read().split(b'\n')
    except OSError:
      return
    for line in lines:
      # The first character of the first token is a bracket or the like and no part of the number.
      tokens = [token.strip(b' ') for token in line.split(b' ')]
      if b'alloc' in line:
        addr = parse_number(tokens[0][1:])
        size = parse_number(tokens[1])
        end = (addr + size) & _UINT64_MAX
        name = b'%s/0X%X-0X%X-%d' % (directory, addr, end, signed64(size))
        self._regions[addr] = Region(addr, size, name)
      if b'gpu:' in line:
        start = parse_number(tokens[0][1:])
        self._regions.setdefault(start, Region())

  def read(self, address, size):
    """At most `size` bytes from `address`, never beyond the region that holds it."""
    for start in sorted(self._regions):
      region = self._regions[start]
      if region.addr <= address < region.addr + region.size:
        return self._read_region(region, address, size)
    return b''

  @staticmethod
  def _read_region(region, address, size):
    offset = address - region.addr
    size = min(size, region.size - offset)
    try:
      with open(region.name, 'rb') as stream:
        with mmap.mmap(stream.fileno(), 0, access=mmap.ACCESS_READ) as snapshot:
          return snapshot[offset:offset + size]
    except OSError:
      log_error(b'mem_name:%s failed\n' % region.name)
      return b''
