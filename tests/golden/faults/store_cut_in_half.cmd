# A store file cut in half: the bind fails naming the file, and nothing
# runs.
/
get /a/i1
