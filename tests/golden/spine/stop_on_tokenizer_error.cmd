/
get "x
help
