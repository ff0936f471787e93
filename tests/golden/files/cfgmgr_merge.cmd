# Diffs merged into the bulk (collapsed per item, or kept as they are), base
# and delta trees merged into a file or restored.
/
create /r/a uint32 1
create /r/b uint32 2
cd /r
startbulk
set a uint32 10
create c uint32 3
cfgmgr_endbulk one.xnd
startbulk
set a uint32 1
delete c
create d string "dee"
cfgmgr_endbulk two.xnd
# Together the two change only d: a comes back to 1, c comes and goes.
startbulk
cfgmgr_merge_diffs one.xnd two.xnd -dest /m
bulk_num_ops
abortbulk
startbulk
cfgmgr_merge_diffs one.xnd two.xnd -dest /m -disable_optim
bulk_num_ops
abortbulk
# Reversed, the merge undoes both: d goes.
startbulk
cfgmgr_merge_diffs one.xnd two.xnd -reverse_diffs -FILTER d
cfgmgr_endbulk
datalist
startbulk
cfgmgr_merge_diffs one.xnd -match "c" -dest /m
cfgmgr_endbulk
datalist /m
startbulk
cfgmgr_merge_diffs -reverse_diffs
cfgmgr_merge_diffs one.xnd missing.xnd
cfgmgr_merge_diffs one.xnd -match x
abortbulk
cfgmgr_merge_diffs one.xnd
# Base and delta: the delta's items win.
create /base/a uint32 100
create /base/b string "base"
create /delta/b string "delta"
create /delta/n int16 -7
filesave base.xnf -src /base
filesave delta.xnf -src /delta -old_format
cfgmgr_merge_delta base.xnf delta.xnf merged.xnf
filerestore merged.xnf -dest /merged
datalist /merged
cd /restored
cfgmgr_restore_delta base.xnf delta.xnf out.xnf -atomic
datalist
# File names are the process's own, not item paths: out.xnf is beside the
# others.
filerestore out.xnf -dest /again
datalist /again
cd /restored
set a uint32 5
cfgmgr_restore_delta base.xnf delta.xnf
get a
cfgmgr_restore_delta base.xnf one.xnd
cfgmgr_merge_delta base.xnf missing.xnf out2.xnf
cfgmgr_merge_delta one.xnd delta.xnf out2.xnf
# Arguments.
cfgmgr_merge_diffs
cfgmgr_merge_diffs f -bogus
cfgmgr_merge_diffs f -match a -match b
cfgmgr_merge_diffs f -dest
cfgmgr_merge_delta a b
cfgmgr_merge_delta a b c d
cfgmgr_restore_delta a
cfgmgr_restore_delta a b c d -atomic
cfgmgr_restore_delta a b c d
cfgmgr_restore_delta a b -bogus
