#!/usr/bin/env python3
"""Writes the dump directory tree of a core file, slowly and plainly.

A second analyser that shares nothing with the program: what the two make of one core file must be
the same, byte for byte. Error messages go to standard error as the program writes them, without
their time stamps. The exit status is the program's.
"""

import argparse
import os
import sys

from aql_packets import dump_packets
from context_area import read_agent_waves
from core_file import (CoreFile, NotACoreFile, QUEUE_TYPE_COMPUTE_AQL, REASON_QUEUE_ERROR,
                       REASON_SIGNAL, REASON_VM_FAULT, RecordedWave, WAVE_SIZE)
from disassembly import Disassembler, FaultingCodeObjects, fault_listing
from occupancy import occupancy_text
from output_tree import log_error, signed32, signed64, write_binary, write_text
from process_memory import ProcessMemory
from wave_text import recorded_wave_text, saved_wave_text

EXIT_FAILURE = 255

FAULTING_TRAPSTS = 0x900

QUEUE_TYPES = [b'compute', b'sdma', b'compute_aql', b'sdma_xgmi']
QUEUE_FORMATS = [b'PM4', b'AQL']

STATUS_TEXTS = {
    41: b'Memory aperture violation;',
    42: b'Illegal instruction;',
    4097: b'Group is too large;',
    4099: b'Invalid group memor;',
    4104: b'Out of scratch;',
    4105: b'Invalid format;',
    4109: b'Invalid dim;',
    4111: b'Out of VGPRs;',
    4112: b'Invalid (or NULL) code;',
    4118: b'Debug trap;',
}

FAULT_CAUSES = [
    (0x1, b'page not present;'),
    (0x2, b'write access to a read-only page;'),
    (0x4, b'execute access to a non-executable page;'),
    (0x8, b'access to host access only;'),
    (0x10, b'uncorrectable DRAM ECC failure;'),
    (0x20, b"can't determine the exact fault address;"),
    (0x40, b'SRAM ECC failure;'),
    (0x80000000, b'GPU reset following unspecified hang;'),
]

SIGTERM = 15


def name_of(names, value):
  return names[value] if value < len(names) else b'unknown'


def queue_error_text(core):
  reason = core.reason
  text = b'Queue error in GPU agent: %s\n' % reason.agent_name
  text += b'GPU Node: %d\n' % signed32(reason.node_id)
  text += b'Queue ID: %d (' % signed32(core.queue_id_by_ring(reason.ring_addr))
  text += STATUS_TEXTS.get(reason.status, b'Undefined code;')
  return text + b')\n\n'


def vm_fault_text(core):
  reason = core.reason
  text = b'Memory access fault in GPU agent: %s\n' % reason.agent_name
  text += b'GPU Node: %d\n' % signed32(reason.node_id)
  text += b'Address: 0X%Xxxx (' % (reason.virtual_address >> 12)
  for bit, cause in FAULT_CAUSES:
    if reason.fault_reason_mask & bit:
      text += cause
  return text + b')\n\n'


def signal_text(core):
  if core.reason.sig == SIGTERM:
    return b'Dumping info due to SIGTERM: kill -15\n\n'
  return b'Dumping info due to SIGUSR1: the cp might be in an unrecoverable state\n\n'


REASON_TEXTS = {
    REASON_QUEUE_ERROR: queue_error_text,
    REASON_VM_FAULT: vm_fault_text,
    REASON_SIGNAL: signal_text,
}


def agent_text(agent):
  text = b'Gpu id: %d\n' % signed32(agent.gpu_id)
  text += b'Node id: %d\n' % signed32(agent.node_id)
  text += b'Chip id: 0X%X\n' % agent.chip_id
  text += b'Drm id: 0X%X\n' % agent.drm_id
  text += b'Agent name: %s\n' % agent.name
  text += b'pci_busid: %04X:%02X:%02X.0\n' % (agent.pci_domain_id, agent.pci_bus_id,
                                             agent.pci_device_id)
  text += b'Is dp4x: %d\n' % agent.is_dp4x
  text += b'Num SEs: %d\n' % signed32(agent.num_ses)
  text += b'Num CUs: %d\n' % signed32(agent.num_cus)
  text += b'Num simds per cu: %d\n' % signed32(agent.num_simds_per_cu)
  text += b'Waves per cu: %d\n' % signed32(agent.waves_per_cu)
  text += b'Max engine freq: %d\n' % signed32(agent.max_engine_freq)
  text += b'Max memory freq: %d\n\n' % signed32(agent.max_memory_freq)
  return text


def queue_text(queue):
  text = b'Queue id: 0X%X\n' % queue.queue_id
  text += b'Gpu id: %d\n' % signed32(queue.gpu_id)
  text += b'Queue type: %s\n' % name_of(QUEUE_TYPES, queue.queue_type)
  text += b'Queue format: %s\n' % name_of(QUEUE_FORMATS, queue.queue_format)
  text += b'Queue eop address: 0X%X\n' % queue.eop_address
  text += b'Queue eop size: 0X%X\n' % queue.eop_size
  text += b'Queue mqd address: 0X%X\n' % queue.mqd_address
  text += b'Queue doorbell offset: 0X%X\n' % queue.doorbell_offset
  text += b'Queue ring info: \n'
  text += b'\tring address: 0X%X\n' % queue.ring_address
  text += b'\tring size: 0X%X\n' % queue.ring_size
  text += b'\twptr address: 0X%X\n' % queue.wptr_address
  text += b'\trptr address: 0X%X\n' % queue.rptr_address
  text += b'\twptr value: %d\n' % signed64(queue.wptr_value)
  text += b'\trptr value: %d\n' % signed64(queue.rptr_value)
  if queue.queue_type == QUEUE_TYPE_COMPUTE_AQL:
    text += b'Queue context info: \n'
    text += b'\tcontext save restore base: 0X%X\n' % queue.context_sr_address
    text += b'\tcontext save restore total size: 0X%X\n' % (queue.context_sr_size & 0xFFFFFFFF)
    text += b'\tcontext stack size: 0X%X\n' % (queue.control_stack_size & 0xFFFFFFFF)
  return text


class Report:
  """One run from a core file to its tree."""

  def __init__(self, core, output, mem_dir, rocm_dir, dis_all):
    self.core = core
    self.dump_dir = output
    self.code_dir = output + b'/codes'
    self.mem_dir = mem_dir
    self.dis_all = dis_all
    self.disassembler = Disassembler(rocm_dir, self.code_dir)
    self.faulting = FaultingCodeObjects()
    self.memory = None

  def queue_dir(self, queue_id):
    return self.dump_dir + b'/queues/%d' % queue_id

  def load(self):
    """False when a code object cannot be written."""
    for index, code_object in enumerate(self.core.code_objects):
      code_object.name = b'code_object_%d' % index
      for agent in self.core.agents:
        if agent.handle == code_object.agent_handle:
          code_object.agent_name = agent.name
          break
      if not self._write_code_object(code_object):
        return False
    write_text(self.dump_dir, b'environment', self.core.environment, append=False)
    self.memory = ProcessMemory(self.mem_dir)
    return True

  def _write_code_object(self, code_object):
    info = b'Object load addr: 0x%x\n' % code_object.addr_loaded
    info += b'Object load size: 0x%x\n' % code_object.size_loaded
    for kernel in code_object.kernels:
      info += kernel.name + b':\n'
      info += b'\tkernel loaded addr: 0x%x\n' % kernel.loaded_addr
    elf = self.core.image.bytes(code_object.elf_offset, code_object.size_elf)
    if not write_binary(self.code_dir, code_object.name, elf):
      log_error(b'[init] Write bin failed, dump dir: %s name : %s\n' %
                (self.code_dir, code_object.name))
      return False
    if not write_text(self.code_dir, code_object.name + b'.info', info, append=False):
      log_error(b'[init] write: %s info failed\n' % code_object.name)
      return False
    return True

  def dump(self):
    if not self._dump_reason():
      log_error(b'dump reason info failed\n')
    for agent in self.core.agents:
      if not self._write_agent_file(agent, agent_text(agent), append=False):
        log_error(b'dump agent: %s failed\n' % agent.name)
      if self.core.reason.reason == REASON_SIGNAL:
        self._dump_recorded_waves(agent)
      else:
        self._dump_saved_waves(agent)
    for queue in self.core.queues:
      queue_dir = self.queue_dir(queue.queue_id)
      if not write_text(queue_dir, b'queue', queue_text(queue), append=False):
        log_error(b'dump queue: %d failed\n' % signed32(queue.queue_id))
      if not dump_packets(self.core, self.memory, queue, queue_dir):
        log_error(b'dump packet: %d failed\n' % signed32(queue.queue_id))
    listed = self.core.code_objects if self.dis_all else self.faulting.list
    self.disassembler.write_listings(listed)

  def _dump_reason(self):
    make_text = REASON_TEXTS.get(self.core.reason.reason)
    if make_text is None:
      return False
    return write_text(self.dump_dir, b'fault_info', make_text(self.core), append=False)

  def _write_agent_file(self, agent, text, append):
    return write_text(self.dump_dir, b'agent_%d' % agent.node_id, text, append)

  def _dump_recorded_waves(self, agent):
    if agent.wave_count == 0:
      return
    waves = [
        RecordedWave(self.core.image, agent.wave_offset + i * WAVE_SIZE)
        for i in range(agent.wave_count)
    ]
    occupancy = occupancy_text([wave.hw_id for wave in waves])
    if not self._write_agent_file(agent, occupancy, append=True):
      log_error(b'write str_occupy failed\n')
    text = b'Total active waves count: %d\n' % signed32(agent.wave_count)
    text += b''.join(recorded_wave_text(self.core, agent, wave) for wave in waves)
    name = b'agent_%d_active_waves' % agent.node_id
    if not write_text(self.dump_dir, name, text, append=False):
      log_error(b'write wave failed\n')

  def _dump_saved_waves(self, agent):
    waves = {}
    if not read_agent_waves(self.core, agent, self.queue_dir, waves):
      log_error(b'get queue wave states failed\n')
      return
    hw_ids = [wave.hw_id for queue_waves in waves.values() for wave in queue_waves]
    if not self._write_agent_file(agent, occupancy_text(hw_ids), append=True):
      log_error(b'write str_occupy failed\n')
      return
    for queue_id in sorted(waves):
      if not self._dump_queue_waves(agent, queue_id, waves[queue_id]):
        return

  def _dump_queue_waves(self, agent, queue_id, waves):
    fault_text = b''
    waves_text = b''
    fault_count = 0
    for wave in waves:
      if wave.trapsts & FAULTING_TRAPSTS:
        wave.pc = wave.trap_pc
        listing = fault_listing(self.core, self.disassembler, self.faulting, agent, wave.pc)
        if listing is None:
          return False
        fault_text += b'Agent %d, Queue ID %d: fault wave PC: 0X%016X\n' % (
            agent.node_id, queue_id, wave.pc)
        fault_text += saved_wave_text(self.core, agent, wave)
        fault_text += listing
        fault_count += 1
      waves_text += saved_wave_text(self.core, agent, wave)
    if fault_text:
      count_line = b'%d wavefronts found error.\n\n' % fault_count
      if not write_text(self.dump_dir, b'fault_info', count_line, append=True):
        return False
      if not write_text(self.dump_dir, b'fault_info', fault_text, append=True):
        return False
    if waves_text:
      count_line = b'Total waves count: %d\n' % len(waves)
      return write_text(self.queue_dir(queue_id), b'waves', count_line + waves_text, append=False)
    return True


def run(input_file, output, mem_dir, rocm_dir, dis_all):
  """The exit status."""
  try:
    core = CoreFile(input_file)
  except OSError:
    log_error(b'Get file handle failed: %s\n' % input_file)
    return EXIT_FAILURE
  except NotACoreFile as error:
    log_error(b'[init] not supprt magic: 0x%x\n' % error.args[0])
    log_error(b'CoreDumpManager init failed.\n')
    return EXIT_FAILURE
  report = Report(core, output, mem_dir, rocm_dir, dis_all)
  if not report.load():
    log_error(b'CoreDumpManager init failed.\n')
    return EXIT_FAILURE
  report.dump()
  return 0


def main():
  parser = argparse.ArgumentParser(description=__doc__)
  parser.add_argument('--input', required=True, type=os.fsencode)
  parser.add_argument('--output', required=True, type=os.fsencode)
  parser.add_argument('--mem-dir', required=True, type=os.fsencode)
  parser.add_argument('--rocm-dir', required=True, type=os.fsencode)
  parser.add_argument('--dis-all', action='store_true')
  options = parser.parse_args()
  return run(options.input, options.output, options.mem_dir, options.rocm_dir, options.dis_all)


if __name__ == '__main__':
  sys.exit(main())
