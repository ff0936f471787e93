# Every scalar datatype as ls and datalist show it.
/
create /t/a uint32 7
create /t/b uint64 0xFFFFFFFFFFFFFFFF
create /t/c string "two words"
create /t/d int8 127
create /t/e uint8 0
create /t/f int16 -32768
create /t/g uint16 0x10
create /t/h int32 2147483647
create /t/i int64 9223372036854775807
datalist /t
ls /t
datalist /t -reverse -num 2
