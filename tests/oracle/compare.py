#!/usr/bin/env python3
"""Runs the program and the oracle on random core files and compares all that they leave behind."""

import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile

from random_core_file import RandomCoreFile

ORACLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'report_oracle.py')
TIME_STAMP = re.compile(rb'\[\d{4}/\d\d/\d\d \d\d:\d\d:\d\d \d{6}\] ')
TIMEOUT_SECONDS = 120

# Says what it was asked, on both of its outputs, and fails for some code objects.
STAND_IN = """#!/bin/sh
for file; do :; done
printf '%%s\\n' "$@"
echo "listing of ${file##*/}" >&2
case "${file##*/}" in
  %s) exit 3 ;;
  %s) kill -9 $$ ;;
esac
"""


class Case:
  """One seed: its files, the two runs, and their difference."""

  def __init__(self, seed, program, llvm_objdump, directory):
    self.program = program
    self.directory = directory
    self.core = os.path.join(directory, 'core_0')
    self.mem_dir = os.path.join(directory, 'mems')
    self.rocm_dir = os.path.join(directory, 'rocm')
    rng = random.Random('run %d' % seed)
    self.dis_all = rng.random() < 0.4
    core_file = RandomCoreFile(seed)
    core_file.write(self.core)
    core_file.memory.write(self.mem_dir)
    self._install_tool(rng, llvm_objdump)

  def _install_tool(self, rng, llvm_objdump):
    if rng.random() < 0.08:
      return
    tool = os.path.join(self.rocm_dir, 'llvm', 'bin', 'llvm-objdump')
    os.makedirs(os.path.dirname(tool))
    if llvm_objdump:
      os.symlink(llvm_objdump, tool)
      return
    with open(tool, 'w', encoding='ascii') as stream:
      stream.write(STAND_IN % ('code_object_%d' % rng.randrange(6),
                               'code_object_%d' % rng.randrange(12)))
    os.chmod(tool, 0o644 if rng.random() < 0.03 else 0o755)

  def _run(self, command, kept_name):
    """Both runs write to the same place, as its path stands in the reports."""
    output = os.path.join(self.directory, 'out')
    result = subprocess.run(command(output), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, timeout=TIMEOUT_SECONDS, check=False)
    os.makedirs(output, exist_ok=True)
    kept = os.path.join(self.directory, kept_name)
    os.rename(output, kept)
    for name, text in (('stdout', result.stdout), ('stderr', result.stderr)):
      with open(kept + '.' + name, 'wb') as stream:
        stream.write(text)
    return result, os.fsencode(kept)

  def _program_command(self, output):
    command = [self.program, '-i', self.core, '-o', output, '-m', self.mem_dir, '-r',
               self.rocm_dir, '-l', 'error']
    return command + (['--dis_all'] if self.dis_all else [])

  def _oracle_command(self, output):
    command = [sys.executable, '-B', ORACLE, '--input', self.core, '--output', output, '--mem-dir',
               self.mem_dir, '--rocm-dir', self.rocm_dir]
    return command + (['--dis-all'] if self.dis_all else [])

  def difference(self):
    """Lines that say what differs first; none when nothing does."""
    program, program_tree = self._run(self._program_command, 'program')
    oracle, oracle_tree = self._run(self._oracle_command, 'oracle')
    if oracle.stderr.startswith(b'Traceback') or b'\nTraceback' in oracle.stderr:
      return ['the oracle failed:', os.fsdecode(oracle.stderr)]
    if program.returncode != oracle.returncode:
      return ['exit status: program %d, oracle %d' % (program.returncode, oracle.returncode),
              os.fsdecode(program.stderr)]
    if program.stdout:
      return ['standard output at error level: %r' % program.stdout]
    messages = first_different_line(TIME_STAMP.sub(b'', program.stderr), oracle.stderr)
    if messages:
      return ['standard error, ' + messages[0]] + messages[1:]
    return tree_difference(program_tree, oracle_tree)


def files_below(root):
  found = []
  for directory, _, names in os.walk(root):
    found += [os.path.relpath(os.path.join(directory, name), root) for name in names]
  return set(found)


def tree_difference(program_tree, oracle_tree):
  program_files = files_below(program_tree)
  oracle_files = files_below(oracle_tree)
  for name in sorted(program_files ^ oracle_files):
    writer = 'program' if name in program_files else 'oracle'
    return ['only the %s wrote %s' % (writer, os.fsdecode(name))]
  for name in sorted(program_files):
    with open(os.path.join(program_tree, name), 'rb') as stream:
      program_bytes = stream.read()
    with open(os.path.join(oracle_tree, name), 'rb') as stream:
      oracle_bytes = stream.read()
    lines = first_different_line(program_bytes, oracle_bytes)
    if lines:
      return ['%s, %s' % (os.fsdecode(name), lines[0])] + lines[1:]
  return []


def first_different_line(program_bytes, oracle_bytes):
  if program_bytes == oracle_bytes:
    return []
  program_lines = program_bytes.split(b'\n')
  oracle_lines = oracle_bytes.split(b'\n')
  number = 0
  for program_line, oracle_line in zip(program_lines, oracle_lines):
    if program_line != oracle_line:
      break
    number += 1
  lines = []
  for label, all_lines in (('program', program_lines), ('oracle ', oracle_lines)):
    lines.append('  %s: %s' % (label, repr(all_lines[number])[2:-1][:200]
                               if number < len(all_lines) else '(no such line)'))
  return ['line %d:' % (number + 1)] + lines


def compare_seed(seed, program, llvm_objdump):
  """True when the two agree; otherwise the directory of the case stays."""
  directory = tempfile.mkdtemp(prefix='talvex-seed-%d-' % seed)
  try:
    difference = Case(seed, program, llvm_objdump, directory).difference()
  except subprocess.TimeoutExpired as error:
    difference = [str(error)]
  if not difference:
    shutil.rmtree(directory)
    return True
  print('seed %d: %s' % (seed, '\n'.join(difference)))
  print('  kept: %s' % directory, flush=True)
  return False


def seed_range(text):
  first, _, last = text.partition('..')
  return range(int(first), int(last or first) + 1)


def main():
  parser = argparse.ArgumentParser(description=__doc__)
  parser.add_argument('--talvex', required=True, type=os.path.abspath, help='the program')
  parser.add_argument('--seeds', required=True, type=seed_range, help='first..last')
  parser.add_argument('--llvm-objdump', type=os.path.abspath,
                      help='a real disassembler in place of the stand-in')
  options = parser.parse_args()
  failed = [
      seed for seed in options.seeds
      if not compare_seed(seed, options.talvex, options.llvm_objdump)
  ]
  print('%d of %d seeds differ' % (len(failed), len(options.seeds)))
  return 1 if failed else 0


if __name__ == '__main__':
  sys.exit(main())
