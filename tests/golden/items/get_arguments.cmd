# get: argument errors, the type word, -bulk and -nobulk.
/
create a uint32 7
get
get a uint32 -bulk -nobulk x
get a -foo
get a -bulk uint32
get a uint32 -bulk -nobulk
get a uint32 -NOBULK
get a -Bulk
get a u32
get a string
get missing
get a uint32 -nobulk -nobulk
