# get_inh: one record per level of the inheritance chain; a third token
# is ignored.
/
create a uint32 1
create s string hello
create d/x uint32 1
get_inh a
get_inh s extra
get_inh s extra more
get_inh
get_inh missing
get_inh d
