/cfg/
q
