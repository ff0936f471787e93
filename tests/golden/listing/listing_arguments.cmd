# Listing options: token limits, values that do not parse (no message),
# -expand on a bind that is not concise, chunked retrieval.
/
create /l/a uint32 1
create /l/b string x
create /l/d/x uint32 2
ls 1 2 3 4 5 6 7 8 9 10
ls /l -num
ls /l -start
ls /l -bogus x
ls /l -bogus
ls /l -num abc
ls /l -num -1
ls /l -chunk abc
ls /l -num 4294967296
ls /l -expand
datalist /l -expand -num 1
ls /l -chunk
ls /l -chunk 0
ls /l -chunk 1
ls /l -chunk 2 -num 2
datalist /l -chunk -reverse
ls /l 1 2 3 4 5 6 7 8
