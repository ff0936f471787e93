# rdlock, wrlock, unlock on one bind: counts, the bind point as the default
# path, the bind's own writes under its lock, unlock without a lock.
/w/
rdlock a b
wrlock a b
unlock a b
rdlock
unlock
wrlock
create x uint32 1
unlock
unlock
wrlock /w/x
unlock /w/x
