/
bogus
help x y