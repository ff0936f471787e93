# A data directory that does not exist under a parent this console may not
# write: the bind fails naming the directory and why, and nothing runs.
/
get /a/x
