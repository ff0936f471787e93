/
cd -m
cd /x -o 0x804
cd /x -o junk
cd /x -o 010
cd /x -F
cd /x -D
cd /x -v
cd /x -d
cd /a -m -l
cd a b
cd /x -c
cd -c
cd /x
cd /nope -d
bind /x
q
