# dump: 17 bytes make two padded lines; the narrow integer types are
# unknown to the dump; a type word is refused.
/
create s16 string 0123456789abcdef
dump s16
dump s16 string
dump
create i int16 -2
dump i
create u uint32 0x12345678
dump u
dump /
dump missing
