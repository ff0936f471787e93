/
do show x
config hostname x
config
CONFIG  a
do "a b"  c
q
