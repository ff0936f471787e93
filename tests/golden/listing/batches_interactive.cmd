# Interactive listing in batches of 3: the question after each batch with
# the more flag; yes fetches the next batch after the last name received.
# The commands come from the .stdin file; this file is not read.
