# set: -create in any case, other fifth words, the stored datatype.
/
set a uint32 1
set a uint32 1 -create
set b uint32 2 -CREATE
set a uint32 3 -creat
set a uint32 3 -create x
set a string x
set a uint32 0x10
get a
get b
set a
set a uint32
set a int8 300
set
