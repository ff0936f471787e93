# A store file this console may not read: the bind fails naming the file
# and "Permission denied", and nothing runs.
/
get /a/x
