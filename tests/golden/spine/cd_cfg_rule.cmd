/
cd /cfg/a
cd /cfg/b
cd /x
cd /cfg/b
cd /cfg/a -d
q
