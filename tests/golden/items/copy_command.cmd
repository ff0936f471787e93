# copy: the success line shows tokens 1 and 2 whatever they are;
# -match without its string is refused twice when a path is missing.
/
create src/a uint32 1
create src/b string x
copy src dst
get dst/a
get dst/b
copy -atomic src dst2
get dst2/a
copy src dst4 -match a
get dst4/a
get dst4/b
copy -COMP_REGEXP src dst5 -Match a
get dst5/b
get dst5/a
copy a b c
copy src -match
copy src dst6 -match
copy src
copy
copy 1 2 3 4 5 6 7
copy nothere dst3
