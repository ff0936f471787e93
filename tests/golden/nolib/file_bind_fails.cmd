/
help
