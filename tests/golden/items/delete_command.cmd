# delete: a later name replaces an earlier one; -comp_regexp keeps what
# matches; no name deletes everything under the bind point.
/
create a uint32 1
create b uint32 2
create c uint32 3
create d/x uint32 4
delete a
delete a
delete -bogus
delete b -BOGUS c
delete b c
get b
get c
delete 1 2 3 4 5 6 7
delete d/ -ATOMIC -apply_levels -initial_load
get d/x
create x uint32 1
create y uint32 1
delete x -comp_regexp -atomic
get x
get y
delete -optimal
get x
