/
get "a b
get a"b
bogus "a b" c
"quit"
bogus
