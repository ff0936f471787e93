/
quit
