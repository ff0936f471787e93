# Trees saved in another data directory (.prep), in the current and the old
# layout, restore the same items of every datatype, value for value.
/
filerestore @TMP@/tree.xnf -dest /cfg
filerestore @TMP@/old.xnf -dest /old -old_format
datalist /cfg/system
datalist /old/system
datalist /cfg/limits
datalist /old/limits
dump /cfg/services/peer
dump /old/services/peer
dump /cfg/interfaces/eth0/record
dump /old/interfaces/eth0/record
get /cfg/routing/static/default
get /old/routing/static/default
datalist /cfg/interfaces/eth1
datalist /old/interfaces/eth1
datalist /old
