# Packed values: the format as typed, the values on the lines after the
# command (echoed), malformed formats, values out of range.
/
create p packed dsld
5
  a b 
0x10
get p
create q packed %D%LLU
1
18446744073709551615
get q
create r packed sss
" "

# not a comment
get r
create e packed ""
get e
create x packed "d s"
create x packed lu
create x packed x
create x packed %5d
create x packed d
4294967296
create x packed llu
-1
get x
set p uint32 1
set p packed d
9
get p
match p packed d
9
match p ld
9
match p packed q
delete_cond p packed d
8
verify p packed d
8
delete_cond p packed d
9
datalist
