# create: missing and excess tokens, unknown types, out-of-range values
# of every width (nothing reaches the database), and refused requests.
/
create
create a
create a uint32
create a uint32 1 x
create a u32 1
create a dir 1
create a uint32 4294967296
create a uint32 -1
create a uint32 08
create a uint64 18446744073709551616
create a int8 128
create a int8 -129
create a uint8 256
create a uint8 +5
create a int16 0x8000
create a uint16 0x1G
create a int32 -2147483649
create a int64 9223372036854775808
create a uint32 "1 "
get a
create a uint32 1
create a uint32 2
create a string x
create a/b uint32 1
create d/x uint32 1
create d uint32 1
get a
