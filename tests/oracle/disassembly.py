"""Listings made by the external disassembler, and the code objects that get one."""

import os
import re
import subprocess

from output_tree import log_error, signed64, write_text

WHOLE_OBJECT = -1


def processor_number(agent_name):
  """The digits behind the fixed part of the agent's name, as atoi reads them."""
  index = 9 if b'ORVEN' in agent_name else 7
  match = re.match(rb'[ \t\n\v\f\r]*([+-]?[0-9]+)', agent_name[index:])
  return int(match[1]) & 0xFFFFFFFFFFFFFFFF if match else 0


class Disassembler:

  def __init__(self, rocm_dir, code_dir):
    self._tool = rocm_dir + b'/llvm/bin/llvm-objdump'
    self._code_dir = code_dir

  def listing(self, agent_name, code_object_name, offset):
    """None when the tool or the code object's file is missing."""
    if not os.path.exists(self._tool):
      log_error(b"Can't find llvm-objdump in path: %s" % self._tool)
      return None
    path = self._code_dir + b'/' + code_object_name
    if not os.path.exists(path):
      log_error(b"Can't find file: %s" % path)
      return None
    arguments = [
        b'llvm-objdump', b'--triple=amdgcn-amd-amdhsa',
        b'--mcpu=gfx%d' % processor_number(agent_name), b'--disassemble', b'--source',
        b'--line-numbers'
    ]
    if offset != WHOLE_OBJECT:
      arguments.append(b'--start-address=0X%X' % (offset - 0x20 & 0xFFFFFFFFFFFFFFFF))
      arguments.append(b'--stop-address=0X%X' % (offset + 0x20 & 0xFFFFFFFFFFFFFFFF))
    output = self._run(arguments + [path])
    if output is None:
      return (b'Code Object:\n' + path + b'\n\n(Disassembly unavailable - '
              b'is amdgcn-capable llvm-objdump available ?)\n\n')
    text = b'Code Object:\n' + output
    if offset != WHOLE_OBJECT:
      text += b'\nPC offset: 0X%X\n\n' % (offset & 0xFFFFFFFFFFFFFFFF)
    return text

  def _run(self, arguments):
    """What the tool wrote; None when it could not be started or did not end well."""
    try:
      result = subprocess.run(arguments, executable=self._tool, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False)
    except OSError:
      return None
    return result.stdout if result.returncode == 0 else None

  def write_listings(self, code_objects):
    for code_object in code_objects:
      text = self.listing(code_object.agent_name, code_object.name, WHOLE_OBJECT)
      write_text(self._code_dir, code_object.name + b'.asm', text or b'', append=False)


class FaultingCodeObjects:
  """Each code object once, in the order in which a wave faulted in it. Two of the same range count
  as one."""

  def __init__(self):
    self.list = []

  def add(self, code_object):
    for known in self.list:
      if (known.addr_loaded == code_object.addr_loaded and
          known.size_loaded == code_object.size_loaded):
        return
    self.list.append(code_object)


def fault_listing(core, disassembler, faulting, agent, pc):
  """The code around the PC of a faulting wave; None when there is nothing to list it with."""
  code_object = core.code_object_at(pc)
  if code_object is None:
    return b'(Cannot match PC to a loaded code object)\n\n'
  faulting.add(code_object)
  offset = signed64(pc - code_object.addr_loaded)
  return disassembler.listing(agent.name, code_object.name, offset)
