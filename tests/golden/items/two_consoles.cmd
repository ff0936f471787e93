# Two consoles on one data directory: B (started by the .prep and still
# bound) created fromB and read C's fromC; this console sees both.
/shared/
get fromB
get fromC
set fromB uint32 3
get fromB
