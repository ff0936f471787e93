# find and finddata: plain, strict and pattern match strings and their
# complement, directories, the no-recurse rule, order, counts, chunks, and
# the argument checks.
/
create /s/a/x uint32 1
create /s/a/y string hello
create /s/a/sub/z int8 -3
create /s/ab uint32 7
create /other/x uint32 2
cd /s
find
find a
find a/
find a -norecurse
find a/ -norecurse
find -dirs
find a/x -strict
find a/sub/ -strict -dirs
find /other
find a/.* -regexp
find a/.* -regexp -dirs
find a/.* -comp_regexp
find ( -regexp
find -reverse -num 2
find -start /s/a/y
find -start a/x -next
find -chunk
find -chunk 1 -dirs
finddata a
finddata -chunk -reverse
finddata a/x -ag -ah
find -show_annot -show_exclude -show_aza_aya
find -only_annot
finddata -only_exclude
find -ag
find -ah
find -bogus
find -num
find -num x
find -chunk x
find -bulk -nobulk
find a -reverse -dirs -norecurse -regexp -start s -num 5 -next -bulk -strict -show_annot
find a -reverse -dirs -norecurse -regexp -start s -num 5 -next -bulk -strict -show_annot -nobulk
