"""The text of one wave: saved in a context save area, or recorded by the runtime."""

from context_area import LANES
from core_file import GFX_VERSION_HERON

_SEPARATOR = b'-' * 62 + b'\n'

# Each row of fields is one line: label, highest bit, lowest bit.
_STATUS_FIELDS = [
    [(b'               SCC: ', 0, 0), (b'      SPI_PRIO: ', 2, 1), (b'     USER_PRIO: ', 4, 3),
     (b'          PRIV: ', 5, 5)],
    [(b'           TRAP_EN: ', 6, 6), (b'     TTRACE_EN: ', 7, 7), (b'         EXECZ: ', 9, 9),
     (b'          VCCZ: ', 10, 10)],
    [(b'             IN_TG: ', 11, 11), (b'    IN_BARRIER: ', 12, 12),
     (b'          HALT: ', 13, 13), (b'          TRAP: ', 14, 14)],
    [(b'      TTRACE_CU_EN: ', 15, 15), (b'         VALID: ', 16, 16),
     (b'       ECC_ERR: ', 17, 17), (b'    FATAL_HALT: ', 23, 23)],
]
_HW_ID_FIELDS = [
    [(b'           WAVE ID: ', 3, 0), (b'       SIMD ID: ', 5, 4), (b'       PIPE ID: ', 7, 6),
     (b'         CU ID: ', 11, 8)],
    [(b'             SH ID: ', 12, 12), (b'         SE ID: ', 14, 13),
     (b'         TG ID: ', 19, 16), (b'         VM ID: ', 23, 20)],
    [(b'           RING ID: ', 26, 24), (b'      STATE ID: ', 29, 27),
     (b'         ME ID: ', 31, 30)],
]
_GPR_ALLOC_FIELDS = [
    [(b'         VGPR_BASE: ', 5, 0), (b'     VGPR_SIZE: ', 13, 8),
     (b'     SGPR_BASE: ', 21, 16), (b'     SGPR_SIZE: ', 27, 24)],
]
_LDS_ALLOC_FIELDS = [
    [(b'          LDS_BASE: ', 7, 0), (b'      LDS_SIZE: ', 20, 12)],
]


def _bits(value, high, low):
  return value >> low & ((1 << (high - low + 1)) - 1)


def _fields_text(register, rows):
  """The rows, with an empty line after the last."""
  lines = []
  for row in rows:
    lines.append(b''.join(label + b'%d' % _bits(register, high, low) for label, high, low in row))
  return b'\n'.join(lines) + b'\n\n'


def _place_text(core, wave):
  text = _SEPARATOR + b'Code Object: '
  code_object = core.code_object_at(wave.pc)
  if code_object is not None:
    text += code_object.name
    text += b'\nPC offset: 0X%X\n' % (wave.pc - code_object.addr_loaded)
  else:
    text += b'\nNot fount code object!!\n'
  hw_id = wave.hw_id
  text += b'se%d' % _bits(hw_id, 14, 13)
  text += b'.sh%d' % _bits(hw_id, 12, 12)
  text += b'.cu%d' % _bits(hw_id, 11, 8)
  text += b'.simd%d' % _bits(hw_id, 5, 4)
  text += b'.wave%d\n\n' % _bits(hw_id, 3, 0)
  return text


def _main_registers_text(wave, addresses_text):
  text = b'Main Registers:\n'
  text += b'        PC: 0X%016X\n' % wave.pc
  text += b'      EXEC: 0X%016X\n' % wave.exec
  text += addresses_text
  text += b'        M0: 0X%08X\n' % wave.m0
  text += b'      MODE: 0X%08X\n' % wave.mode
  text += b'   TRAPSTS: 0X%08X\n' % wave.trapsts
  text += b'    STATUS: 0X%08X\n' % wave.status
  text += _fields_text(wave.status, _STATUS_FIELDS)
  return text


def _hw_id_text(hw_id):
  return b'      HWID: 0X%08X\n' % hw_id + _fields_text(hw_id, _HW_ID_FIELDS)


def _allocation_text(wave):
  text = b'    IB_STS: 0X%08X\n' % wave.ib_sts
  text += b'            VM_CNT: %d' % (wave.ib_sts & 0xF | wave.ib_sts >> 18 & 0x30)
  text += b'       EXP_CNT: %d' % _bits(wave.ib_sts, 6, 4)
  text += b'      LGKM_CNT: %d' % _bits(wave.ib_sts, 11, 8)
  text += b'      VALU_CNT: %d\n\n' % _bits(wave.ib_sts, 14, 12)
  text += b' GPR_ALLOC: 0X%08X\n' % wave.gpr_alloc
  text += _fields_text(wave.gpr_alloc, _GPR_ALLOC_FIELDS)
  text += b' LDS_ALLOC: 0X%08X\n' % wave.lds_alloc
  text += _fields_text(wave.lds_alloc, _LDS_ALLOC_FIELDS)
  return text


def _rows_text(letter, first_number, values):
  """Rows of four registers; what is left over by the last whole row does not appear."""
  text = []
  for row in range(len(values) // 4):
    text.append(b' ')
    for k in range(4 * row, 4 * row + 4):
      name = letter + b'%d' % (first_number + k)
      text.append(b'%6s: 0X%08X' % (name, values[k]))
    text.append(b'\n')
  return b''.join(text)


def _lds_text(words):
  text = b'LDS:\n\n'
  for row in range(len(words) // 4):
    text += b'0X%04X:' % (row * 16)
    for word in words[4 * row:4 * row + 4]:
      text += b' 0X%08X:' % word
    text += b'\n'
  return text + b'\n'


def saved_wave_text(core, agent, wave):
  image = core.image
  addresses = b'XNACK_MASK: 0X%016X\n' % wave.xnack_mask
  addresses += b'       TBA: 0X%016X\n' % wave.tba
  addresses += b'       TMA: 0X%016X\n' % wave.tma
  text = [_place_text(core, wave), _main_registers_text(wave, addresses)]
  if wave.hw_id != 0:
    text.append(_hw_id_text(wave.hw_id))
  text.append(_allocation_text(wave))
  text.append(b'\nGeneral Registers:\n\n')
  text.append(_rows_text(b's', 0, image.words(wave.sgprs_offset, wave.num_sgprs)) + b'\n')

  has_second_bank = agent.is_dp4x and agent.gfx_version == GFX_VERSION_HERON
  bank = image.words(wave.vgprs_offset, LANES * wave.num_vgprs)
  second_bank_offset = wave.vgprs_offset + (core.dp4x_vgpr_offset & ~3)
  second_bank = image.words(second_bank_offset, LANES * wave.num_vgprs) if has_second_bank else ()
  for lane in range(LANES):
    text.append(b'Lane %d\n' % lane)
    text.append(_rows_text(b'v', 0, bank[lane::LANES]))
    text.append(_rows_text(b'v', wave.num_vgprs, second_bank[lane::LANES]))
  text.append(b'\n')

  if wave.lds_offset is not None:
    text.append(_lds_text(image.words(wave.lds_offset, wave.lds_words)))
  text.append(b'\n')
  return b''.join(text)


def recorded_wave_text(core, agent, wave):
  text = [_place_text(core, wave), _main_registers_text(wave, b'')]
  text.append(_hw_id_text(wave.hw_id))
  text.append(_allocation_text(wave))
  text.append(b'\nGeneral Registers:\n\n')
  sgpr_count = 16 * (_bits(wave.gpr_alloc, 27, 24) + 1)
  text.append(_rows_text(b's', 0, wave.sgprs[:sgpr_count]) + b'\n')
  vgpr_count = (_bits(wave.gpr_alloc, 13, 8) + 1) * (8 if agent.is_dp4x else 4)
  for lane in range(LANES):
    text.append(b'Lane %d\n' % lane)
    text.append(_rows_text(b'v', 0, wave.registers[256 * lane:256 * lane + vgpr_count]))
  text.append(b'\n')
  text.append(b'\n')
  return b''.join(text)
