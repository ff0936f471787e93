# The store can be read without writing only through its -wal and -shm
# files, which this console may not create: the bind fails naming the file
# and why, and nothing runs.
/
get /a/x
