# -v adds the success lines of get, dump and get_inh.
/
create a uint32 1
get a
dump a
get_inh a
get missing
get_inh missing
