# A recorded cd ends the buffered transaction when it is replayed: the
# rebind aborts the old bind's transaction, the later lines run on the new
# bind outside any transaction, and the commit finds none.
/
starttrans -b
create a uint32 1
cd /x
create b uint32 2
committrans
get /a
get /x/b
