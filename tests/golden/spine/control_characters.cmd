/
get	x

quit
q
