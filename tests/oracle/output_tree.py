"""The only way to the disk, and the printf conversions that reports are made with."""

import os
import sys


def write_text(directory, name, text, append):
  """False when the file or the directories above it cannot be made."""
  try:
    os.makedirs(directory, exist_ok=True)
    with open(directory + b'/' + name, 'ab' if append else 'wb') as stream:
      stream.write(text)
  except OSError:
    return False
  return True


def write_binary(directory, name, contents):
  """Like write_text, but there is no file of no bytes: it fails once the directory is made."""
  try:
    os.makedirs(directory, exist_ok=True)
  except OSError:
    return False
  return len(contents) > 0 and write_text(directory, name, contents, append=False)


def log_error(message):
  """The message carries its own line end, or has none."""
  sys.stderr.buffer.write(b'Error: ' + message)
  sys.stderr.buffer.flush()


def signed32(value):
  """What %d makes of the low 32 bits."""
  value &= 0xFFFFFFFF
  return value - (1 << 32) if value & 0x80000000 else value


def signed64(value):
  value &= 0xFFFFFFFFFFFFFFFF
  return value - (1 << 64) if value >> 63 else value
