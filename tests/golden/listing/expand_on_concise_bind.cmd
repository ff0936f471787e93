# On a concise bind -expand is passed on and nothing is printed about it.
/
create /l/a uint32 1
create /l/b string x
create /l/d/x uint32 2
ls /l -expand
