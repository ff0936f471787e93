# list, ls and datalist: names with their datatypes or with their values,
# the options, and the last path token winning.
/
create /l/a uint32 1
create /l/b string x
create /l/d/x uint32 2
ls /l
list /l/
LS l
datalist /l
ls /l -reverse
ls /l -start b
ls /l -start a -next
ls /l -num 2
ls /l -NUM 1 -Reverse
ls /nope /l
ls
datalist /l/d
ls /l -nobulk
ls /l -bulk
ls /l -bulk -nobulk
ls /l/a
datalist /nope
