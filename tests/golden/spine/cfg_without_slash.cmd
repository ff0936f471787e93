/cfg
quit
