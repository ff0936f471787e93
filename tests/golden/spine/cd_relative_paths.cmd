/a/b/
cd c
cd /a/b/
cd ../c
cd /a/b/
cd ..
cd /a/b/
cd ./c/
cd /a/b/
cd c//d
cd /x
cd
cd ..
q
