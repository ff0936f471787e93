/
bogus
