/cfg/
quit
