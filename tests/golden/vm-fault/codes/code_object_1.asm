Code Object:
--triple=amdgcn-amd-amdhsa
--mcpu=gfx0
--disassemble
--source
--line-numbers
code_object_1
0000000000001000 <vector_add>:
	s_endpgm  // 000000001000: BF810000
