# edmnotify: counts, events (matched exactly), datatypes and values.
/
edmnotify
edmnotify x
edmnotify x uint32
edmnotify x uint32 set
edmnotify x uint32 SET 1 2
edmnotify x uint32 set 1
edmnotify x uint32 set 1 2 3
edmnotify x uint32 create 1 2
edmnotify x uint32 delete 1 2
edmnotify x bogus create 1
edmnotify x bag create 1
edmnotify x int8 delete 1
edmnotify x uint32 create abc
edmnotify x uint32 set 1 abc
edmnotify x uint32 create 1
edmnotify /n/x UINT64 set 1 18446744073709551615
edmnotify "a b" string delete "old value"
edmnotify p packed set ds ds
1
old
2
new
edmnotify q packed create d!
