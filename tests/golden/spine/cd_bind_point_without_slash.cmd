/a
cd b
ls
q
