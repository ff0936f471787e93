/a
help
