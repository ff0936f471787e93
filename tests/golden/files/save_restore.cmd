# Save a subtree and restore it elsewhere in the same store: the match
# strings (prefixes, patterns, their complement), an item as the source,
# relative paths, the layouts, existing items, -update and -atomic.
/
create /a/x uint32 1
create /a/s/y string "hello world"
create /a/s/z int64 -5
create /a/subway uint8 7
create /a/p/q int16 -300
cd /a
filesave all.xnf
filerestore all.xnf -dest /b
datalist /b
datalist /b/s
filesave s.xnf -match s
filerestore s.xnf -dest /c
datalist /c
filesave re.xnf -match "s/.*" -regexp -old_format
filerestore re.xnf -dest /d
datalist /d
filesave comp.xnf -match "s/.*" -match "p/.*" -comp_regexp
filerestore comp.xnf -dest /e
datalist /e
filesave item.xnf -src s/y
filerestore item.xnf -dest /f
datalist /f
filesave two.xnf -src /a -match p -match x
filerestore two.xnf -dest /g -match "p/.*"
datalist /g
# Restoring over what exists: refused item by item, or set with -update.
set /b/x uint32 99
filerestore all.xnf -dest /b
filerestore all.xnf -dest /b -atomic
get /b/x
# Without -atomic what can be restored is: the deleted item comes back.
delete /b/s/y
filerestore all.xnf -dest /b
get /b/s/y
get /b/x
filerestore all.xnf -dest /b -update -initial_load -apply_levels
get /b/x
# Nothing that matches, a bad pattern, a missing source.
filesave none.xnf -match nothing
filesave bad.xnf -match "(" -regexp
filesave missing.xnf -src /nowhere
filerestore all.xnf -match "("
filerestore all.xnf -match nothing
filerestore /nonexistent/all.xnf
filesave /nonexistent/dir/all.xnf
