# Delete marks in the open bulk: areas by pattern, plain deletes, and their
# removal again.
/
create /r/a1 uint32 1
create /r/a2 uint32 2
create /r/b uint32 3
create /r/sub/a3 uint32 4
create /r/keep/x uint32 5
cd /r
startbulk
cfgmgr_delete "a[0-9]" "sub/.*"
bulk_num_ops
create a1 uint32 9
cfgmgr_delete "a1" -Remove_Only
bulk_num_ops
cfgmgr_endbulk
datalist
# Plain deletes, then all of them taken back.
startbulk
cfgmgr_add_deletes b keep/
bulk_num_ops
cfgmgr_remove_deletes anything at all
bulk_num_ops
cfgmgr_remove_deletes
cfgmgr_add_deletes b
cfgmgr_endbulk
datalist
# Refusals: no bulk, a bad pattern, nothing to remove.
cfgmgr_delete x
cfgmgr_add_deletes x
cfgmgr_remove_deletes
startbulk
cfgmgr_delete "("
cfgmgr_delete nothing -remove_only
abortbulk
# Arguments.
cfgmgr_delete
cfgmgr_delete -remove_only
cfgmgr_delete a -other
cfgmgr_add_deletes
cfgmgr_add_deletes a -b
