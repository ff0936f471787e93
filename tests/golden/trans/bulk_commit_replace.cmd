# endbulk -commit_replace: what the bulk did not write under the bind point
# is deleted; what lies outside stays.
/
create /r/a uint32 1
create /r/b uint32 2
create /other uint32 3
cd /r
startbulk
set a uint32 10
create c uint32 30
endbulk -Commit_Replace
get a
get b
get c
get /other
