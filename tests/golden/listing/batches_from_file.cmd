# With batches of 3 entries a listing from a command file shows its first
# batch and asks nothing; chunked listings read every chunk.
/
create /b/a uint32 1
create /b/b uint32 2
create /b/c uint32 3
create /b/d uint32 4
create /b/e uint32 5
ls /b
datalist /b
ls /b -num 2
ls /b -start c
ls /b -start b -next
ls /b -chunk 2
datalist /b -chunk
