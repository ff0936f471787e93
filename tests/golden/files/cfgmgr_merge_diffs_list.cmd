# cfgmgr_merge_diffs_list shows the merged changes of diff files, as a merge
# would add them, or the changes that undo them.
/
create /r/a uint32 1
create /r/gone string "old"
cd /r
startbulk
set a uint32 10
create c uint32 3
delete gone
cfgmgr_endbulk one.xnd
startbulk
set a uint32 20
create d/e int8 -4
cfgmgr_endbulk two.xnd
cfgmgr_merge_diffs_list one.xnd two.xnd
cfgmgr_merge_diffs_list one.xnd two.xnd -Reverse_Diffs
cfgmgr_merge_diffs_list two.xnd
cfgmgr_merge_diffs_list one.xnd missing.xnd
cfgmgr_merge_diffs_list
cfgmgr_merge_diffs_list -reverse_diffs
cfgmgr_merge_diffs_list one.xnd -match x
