# A number given to starttrans, or set with settimeout, is the timeout of
# every later transaction; settimeout alone restores 300 seconds. A commit
# after the timeout stores nothing, is not an error, and closes the
# transaction.
/
starttrans 2
committrans
starttrans
create a uint32 1
# pause 3
committrans
get a
committrans
settimeout 1
starttrans
create b uint32 2
# pause 2
committrans
settimeout
starttrans
create c uint32 3
# pause 2
committrans
get c
