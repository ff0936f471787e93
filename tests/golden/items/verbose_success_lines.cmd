# -v adds the success lines of get and dump.
/
create a uint32 1
get a
dump a
get missing
get_inh missing
