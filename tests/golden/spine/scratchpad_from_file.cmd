/a/
quit
bogus
