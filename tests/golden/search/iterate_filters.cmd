# iterate: the walk in path order, name and datatype filters joined, -not
# applied once to the whole filter wherever it stands, values with and
# without -datalist, and the argument checks.
/
create /i/a uint32 1
create /i/b string bee
create /i/sub/a int8 -1
create /i/sub/deep/c uint64 3
create /j/z uint32 0
iterate /i
iterate i
iterate /i -name a
iterate /i -name sub/* -name b
iterate /i -name **/c
iterate /i -name a -datatype string
iterate /i -not -name a -datatype string
iterate /i -not -name a -not -datatype string
iterate /i -datatype int8 -values
iterate /i -values -datalist -edm -name ?
iterate /i -not
iterate /i -datatype bogus
iterate /i -name
iterate /i -bogus x
iterate /missing
iterate /i/a
