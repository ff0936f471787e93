# A store file replaced by garbage: the bind fails naming the file, and
# nothing runs.
/
get /a/x
