# Bags stored by .prep that the encoder cannot write, shown by get: the
# linked-list, unknown-token, unnamed-scope and unprintable-byte lines,
# and the four failure reports (unregistered type, body not matching its
# type, body ending early, unknown encoding and undeclared version).
/
get d/list
get d/ghost
get d/damaged
get d/cut
get d/future
get d/oldver
