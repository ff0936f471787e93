# A data directory this console may read but not write, the store open in
# its owner's console: reads work; every write is refused naming the file
# and the reason, and the console goes on.
/
get /a/x
datalist /a
ls /a/sub
create /a/new uint32 2
set /a/x uint32 9
delete /a/y
startbulk
create /a/b1 uint32 1
endbulk
get /a/x
