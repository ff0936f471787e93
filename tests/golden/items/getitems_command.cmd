# getitems: the named items of a path, or of the whole tree with -s,
# in the order named; names that do not exist are left out.
/
create g/a uint32 1
create g/b string bee
getitems /g/ a b
getitems /g b missing a
getitems -s /g/a /g/b
getitems -S g/b
getitems /nope/ a
getitems /g/
getitems
getitems /x/../ a
