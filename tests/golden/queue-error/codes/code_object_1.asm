Code Object:
--triple=amdgcn-amd-amdhsa
--mcpu=gfx936
--disassemble
--source
--line-numbers
code_object_1
0000000000001000 <vector_add>:
	s_endpgm  // 000000001000: BF810000
