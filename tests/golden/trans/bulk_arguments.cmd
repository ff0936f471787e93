# Argument checks of the bulk commands, and their answers without a bulk.
/
startbulk -atomic -update -issu -initial_load -int_rollback
startbulk -atomic -bogus
startbulk -issu -bogus
bulk_num_ops
bulk_num_ops x
endbulk -commit_replace x
endbulk -bogus
endbulk
endbulk -commit_replace
abortbulk x
abortbulk
remove_bulk_op
remove_bulk_op a -creates x
remove_bulk_op a -bogus
remove_bulk_op a
