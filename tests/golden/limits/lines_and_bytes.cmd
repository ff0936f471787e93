# The commands are in lines.cmd, which lines_and_bytes.prep writes: lines at
# and past the line buffer, a line of 100,000 characters, a NUL byte, and
# names and values that are not UTF-8.
/
