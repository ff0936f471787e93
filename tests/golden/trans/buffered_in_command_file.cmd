# A buffered transaction in a command file is replayed as at the terminal:
# after committrans the recorded lines run in order, then the commit; a
# failing line turns the commit into an abort. Replayed lines are not
# echoed as commands.
/
starttrans -b
create a uint32 1
create b uint32 2
committrans
get b
starttrans -b
create c uint32 1
bogus
set c uint32 2
committrans
get c
starttrans -b
starttrans bogus
create d uint32 4
committrans
get d
