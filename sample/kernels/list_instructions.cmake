# Writes the address and mnemonic of every instruction of a code object, a line
# "<hex address> <mnemonic>" each:
#   cmake -DOBJDUMP=llvm-objdump -DCODE_OBJECT=copy.co -DOUTPUT=copy.pcs -P list_instructions.cmake
execute_process(
  COMMAND ${OBJDUMP} --triple=amdgcn-amd-amdhsa --mcpu=gfx906 --disassemble ${CODE_OBJECT}
  OUTPUT_VARIABLE listing
  COMMAND_ERROR_IS_FATAL ANY)

# An instruction's line: blanks, its text, then "// <address>: <encoding>".
string(REGEX MATCHALL "\n[ \t]+[a-z][a-z0-9_]+[^\n]*// [0-9A-F]+:" lines "${listing}")
set(instructions "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^\n[ \t]+([a-z][a-z0-9_]+).*// 0*([0-9A-F]+):$" "\\2 \\1" line "${line}")
  string(APPEND instructions "${line}\n")
endforeach()
file(WRITE ${OUTPUT} "${instructions}")
