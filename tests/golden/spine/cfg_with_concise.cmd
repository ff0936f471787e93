/cfg/a/
quit
