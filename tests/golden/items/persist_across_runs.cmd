# Items written by an earlier console run (the .setup) are there in the next.
/
get kept/u
get kept/s
set kept/u uint32 43
get kept/u
get gone
