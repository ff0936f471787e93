# The argument walks of filesave and filerestore: every refusal is reported
# before a file is touched, so none of these files exists afterwards.
/
create /a/x uint32 1
filesave
filerestore
filesave f1 -src /a -src /a
filesave f2 -match
filesave f3 -src
filesave f4 second
filesave f5 -unknown
filesave -src /a f6 -Match x -REGEXP -comp_regexp -bulk -nobulk -old_format -nodeletes extra
filesave f7 -match a/x -match 2 -match 3 -match 4 -match 5 -match 6 -match 7 -match 8 -match 9 -match 10 -match 11 -match 12 -match 13 -match 14 -match 15
filerestore f9 -match a -match b
filerestore f9 -dest /a -dest /b
filerestore f9 -dest
filerestore f9 second
filerestore f9 -bogus
filerestore f9 -atomic -update -initial_load -apply_levels -old_format -dest /x -match y
filerestore f9 -atomic -update -initial_load -apply_levels -old_format -dest /x -match y z
# Option words are matched without regard to case; a file name is needed.
FILESAVE -SRC /a
filerestore -ATOMIC
# 32 tokens are accepted: a list of 15 match strings.
filerestore f7 -dest /copy
get /copy/a/x
