# A bulk collects the changes, collapsed per item, and applies them at its
# end; remove_bulk_op takes operations out, bulk_num_ops counts them.
/
create keep uint32 1
create p uint32 1
startbulk
bulk_num_ops
create a uint32 1
set a uint32 2
bulk_num_ops
create b uint32 3
delete keep
bulk_num_ops
remove_bulk_op b
remove_bulk_op keep -creates
remove_bulk_op keep -DELETES
bulk_num_ops
endbulk
get a
get b
get keep
startbulk -atomic -update
create a uint32 5
create c uint32 6
remove_bulk_op ""
bulk_num_ops
create p uint32 7
endbulk
get p
startbulk -int_rollback -initial_load -apply_levels
startbulk
create q uint32 8
abortbulk
get q
startbulk -atomic
create p uint32 9
create r uint32 10
endbulk
get r
