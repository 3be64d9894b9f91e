"""Random memory directories: an index in all the forms that it may take, and its snapshots."""

import os

NUMBER_FORMATS = ('0x%x', '0X%X', '%d', '0%o')


class RandomMemory:
  """`addresses` are worth reading: in regions, at their edges and between them."""

  def __init__(self, rng):
    self._rng = rng
    self.addresses = []
    self._lines = []
    self._snapshots = []  # (name, contents)
    self._has_index = rng.random() < 0.9
    base = rng.randrange(1, 1 << 46)
    for _ in range(rng.randrange(6)):
      size = rng.choice([1, 16, 64, 4096, 5000, rng.randrange(1, 9000)])
      self._add_region(base, size)
      if rng.random() < 0.1:
        # The same start again: the later size counts.
        size = max(1, size // 2)
        self._add_region(base, size)
      base += rng.choice([size, size, size // 2 + 1, size + 4096])
    if rng.random() < 0.1:
      self._lines.append(' 0x1234 0x40 a b 0 alloc')  # nothing before the first blank: address 0
      self._add_snapshot(0, 0x40, rng.randbytes(0x40))
    self._add_other_lines()

  def _number(self, value):
    return self._rng.choice(NUMBER_FORMATS) % value

  def _add_region(self, addr, size):
    rng = self._rng
    line = '%s%s %s %s %s %s alloc' % (rng.choice('[(x5'), self._number(addr), self._number(size),
                                       rng.choice(['a', '0x0', '']), rng.choice(['b', 'to']),
                                       self._number(rng.getrandbits(32)))
    line += rng.choice(['', ' more', '  ', ' gpu: 4'])
    self._lines.append(line)
    for _ in range(rng.randrange(3)):
      self._lines.append('[%s size mapped to gpu: %d' % (self._number(addr), rng.getrandbits(16)))
    if rng.random() < 0.93:
      extra = rng.randbytes(rng.choice([0, 0, 0, 10]))
      self._add_snapshot(addr, size, rng.randbytes(size) + extra)
    self.addresses += [addr, addr + size - 1, addr + size, addr + rng.randrange(size), addr - 1]

  def _add_snapshot(self, addr, size, contents):
    self._snapshots.append(('0X%X-0X%X-%d' % (addr, addr + size, size), contents))
    self.addresses.append(addr)

  def _add_other_lines(self):
    rng = self._rng
    for _ in range(rng.randrange(3)):
      line = rng.choice([
          '', 'process memory', '# 0x10 0x20', '[0x99 size mapped to gpu: 3',
          '[zz 0x10 a b 0 alloc', '[0x8000 0 a b 0 alloc'
      ])
      self._lines.insert(rng.randrange(len(self._lines) + 1), line)

  def write(self, directory):
    if not self._has_index:
      return
    os.makedirs(directory)
    text = '\n'.join(self._lines) + self._rng.choice(['\n', ''])
    with open(os.path.join(directory, 'process_mem_info'), 'w', encoding='ascii') as stream:
      stream.write(text)
    for name, contents in self._snapshots:
      with open(os.path.join(directory, name), 'wb') as stream:
        stream.write(contents)
