/
help
HELP extra
q
