/
config

quit
