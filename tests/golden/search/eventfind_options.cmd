# eventfind: created, set and deleted items in path order, match strings,
# patterns, order, start names, counts, the pending changes of a
# transaction and of a bulk, and the argument checks.
/
create /e/a uint32 1
create /e/b string one
set /e/a uint32 2
delete /e/b
create /e/sub/c int8 5
create /f/x uint32 9
cd /e
eventfind
eventfind a -strict
eventfind s
eventfind .*b -regexp
eventfind .*b -comp_regexp
eventfind -reverse -num 2
eventfind -start /e/b
eventfind -start b -next
eventfind /f
eventfind -only_annot
eventfind -show_annot -show_exclude -only_exclude
starttrans
set a uint32 3
create d uint32 4
eventfind -precommit_changes a -reverse
eventfind -precommit_changes -debug_wp
eventfind d
eventfind d -bulk
aborttrans
startbulk
delete sub/c
set a uint32 7
eventfind -precommit_changes
eventfind -precommit_changes -debug_wp -num 1
abortbulk
eventfind -precommit_changes
eventfind -bulk
eventfind -chunk
eventfind -ag
eventfind -start
eventfind -num x
eventfind ( -regexp
eventfind -nobulk -bulk
eventfind a -reverse -regexp -start s -num 5 -next -bulk -strict
eventfind a -reverse -regexp -start s -num 5 -next -bulk -strict -show_annot
