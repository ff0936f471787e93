# Interactive find, finddata and eventfind in batches of 3: the question
# after each batch with the more flag; yes fetches the next batch after the
# last path received. An event batch never splits the events of one path.
# The commands come from the .stdin file; this file is not read.
