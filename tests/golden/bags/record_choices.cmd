# A union (its address, void and string arms), optional data holding a
# struct with an inner struct, selections out of range (0, 4, text), and
# a trailing list whose end is offered with its first element: the bag
# ends at that step whichever line is chosen, and a chosen element is
# asked for but not stored. Version 2.5 of the same type; get and datalist.
/
create b/r bag g_record
1
0
0
4
x
2
10.1.2.3
2
8080
0
1
7
create b/r2 bag g_record
2
5
1
1
2
create b/r3 bag g_record
1
0
3
db.example
1
2
get b/r
datalist b
