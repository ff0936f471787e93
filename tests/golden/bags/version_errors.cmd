# Types and versions the encoder does not know: an undeclared version, an
# unknown type, a type whose schema file has an error (that file stops
# nothing else), versions given as text (0) and as -1. Each refusal ends
# only its command. Then the smallest bag: one int, every step a single
# choice, so no selection is asked.
/
create v1 bag g_record
9
0
create v2 bag no_such_bag
1
0
create v3 bag g_broken
1
0
create v4 bag g_count
one
zero
create v5 bag g_count
-1
0
create v6 bag g_count
1
0
-1
get v6
get v1
