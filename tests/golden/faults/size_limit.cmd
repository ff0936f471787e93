# Writes of 3,000 items that the store cannot write (a file size limit
# stands for a full disk): a copy and a bulk end fail with the store
# failure text naming the file and the system's reason, nothing of them
# stays, and the console goes on, reading and writing what fits.
/
copy /t /r
startbulk
filerestore @TMP@/t.xnf -dest /r2
endbulk
get /a/x
create /a/small uint32 7
get /a/small
