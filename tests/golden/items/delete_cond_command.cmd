# delete_cond deletes only when the value is equal.
/
create a uint32 5
delete_cond a uint32 6
delete_cond a string 5
delete_cond a uint32 0x100000000
delete_cond a
delete_cond a uint32
delete_cond a uint32 5 5
get a
delete_cond a uint32 5
delete_cond a uint32 5
