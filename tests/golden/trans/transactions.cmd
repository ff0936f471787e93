# starttrans, committrans, aborttrans: a transaction's changes are seen by
# its own bind at once and stored at the commit; an abort stores nothing.
/
starttrans
create a uint32 1
get a
committrans
get a
starttrans -initial_load
set a uint32 2
create b string x
get b
aborttrans
get a
get b
STARTTRANS -Apply_Levels 20 -INITIAL_LOAD
set a uint32 3
CommitTrans
get a
