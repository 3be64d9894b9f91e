Code Object:
--triple=amdgcn-amd-amdhsa
--mcpu=gfx926
--disassemble
--source
--line-numbers
code_object_2
0000000000001000 <vector_add>:
	s_endpgm  // 000000001000: BF810000
