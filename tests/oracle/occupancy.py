"""The table of waves per SIMD of one agent, and the share of the GPU that they occupy."""

_SES = 4
_CUS = 16
_SIMDS = 4
_WAVE_SLOTS = 2560


def occupancy_text(hw_ids):
  counts = {}
  for hw_id in hw_ids:
    place = (hw_id >> 13 & 3, hw_id >> 12 & 1, hw_id >> 8 & 0xF, hw_id >> 4 & 3)
    counts[place] = counts.get(place, 0) + 1

  used_ses, used_cus, used_simds = set(), set(), set()
  rule = b'-' * 85 + b'\n'
  text = rule
  text += b'SIMD| ' + (b'%d ' * 4 % (0, 1, 2, 3) + b'| ') * 8 + b'\n'
  for block in range(0, _CUS, 8):
    cus = range(block, block + 8)
    text += rule
    text += b'CU  |' + b''.join(b'%5d%5s' % (cu, b'|') for cu in cus) + b'\n'
    for se in range(_SES):
      # The second shader array of a shader engine has no row.
      text += b'S%dH%d|' % (se, 0)
      for cu in cus:
        for simd in range(_SIMDS):
          count = counts.get((se, 0, cu, simd), 0)
          if count == 0:
            text += b'%2s' % b'-'
          else:
            text += b'%2d' % count
            used_ses.add(se)
            used_cus.add((se, cu))
            used_simds.add((se, cu, simd))
        text += b' |'
      text += b'\n'
  text += b'=' * 85 + b'\n'
  text += b'%-16s%-16s%-20s' % (b'Used SEs(4)', b'Used CUs(64)', b'Used SIMDs(256)')
  text += b'%-18s%-18s\n' % (b'Active Waves', b'Waves Occupancy')
  text += b'%6d%16d%16d' % (len(used_ses), len(used_cus), len(used_simds))
  text += b'%20d%20.3f %%\n' % (len(hw_ids), len(hw_ids) / _WAVE_SLOTS * 100.0)
  text += b'=' * 85 + b'\n'
  return text
