/
bogus
BOGUS
quit
bogus
