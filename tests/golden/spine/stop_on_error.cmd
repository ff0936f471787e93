/
bogus
help
