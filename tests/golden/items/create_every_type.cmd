# One item of every scalar datatype, created and read back.
/
create u32 uint32 305419896
create u64 uint64 0x0123456789ABCDEF
create s string "hello world"
create i8 int8 -128
create u8 UINT8 255
create i16 int16 -2
create u16 uint16 0xFFFF
create i32 Int32 -1
create i64 int64 -9223372036854775808
create e string ""
create o uint32 010
get u32
get u64
get s
get i8
get u8
get i16
get u16
get i32
get i64
get e
get o
get /
get u32 UINT32
