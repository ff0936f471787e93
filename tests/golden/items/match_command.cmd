# match: every verdict line; the uint64 halves print without leading zeros.
/
create u uint32 5
create u64 uint64 0x100000001
create s string abc
create i int32 1
create d/x uint32 1
match u 5
match u uint32 0x5
match u uint32 6
match u 5x
match u64 0x11
match u64 uint64 4294967297
match u64 -1
match s abc
match s "ab c"
match d anything
match i 1
match missing 1
match u string abc
match u u32 5
match u
match
match u uint32 5 x
