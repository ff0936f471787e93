# cfgmgr_endbulk saves the changes of the bulk as a diff; the diff added with
# -reverse_diffs undoes them. A bulk whose diff cannot be placed is not
# ended; a failed end closes the bulk unless it survived.
/
create /r/a uint32 1
create /r/b string "two"
create /r/gone int8 -1
cd /r
startbulk
set a uint32 10
create c/d uint64 4
delete gone
cfgmgr_endbulk change.xnd
datalist
datalist c
startbulk
cfgmgr_adddiffs change.xnd -reverse_diffs
bulk_num_ops
cfgmgr_endbulk undo.xnd -atomic
datalist
# The diff applied again with -dest under another directory.
startbulk
cfgmgr_adddiffs change.xnd -dest /copy -filter c
cfgmgr_endbulk
datalist /copy/c
# No changes, no file; no file name, no file.
startbulk
cfgmgr_endbulk nothing.xnd
startbulk
cfgmgr_adddiffs nothing.xnd
abortbulk
startbulk
set a uint32 11
cfgmgr_endbulk
# The diff's place cannot be had: the bulk stays open.
startbulk
set a uint32 12
cfgmgr_endbulk /nonexistent/dir/x.xnd
bulk_num_ops
# An atomic end that is refused: nothing applied, the bulk closed.
create b string "refused"
cfgmgr_endbulk refused.xnd -atomic
bulk_num_ops
get a
# A replacing end: what the bulk did not write under /r is deleted.
startbulk
create e uint32 5
cfgmgr_endbulk replace.xnd -commit_replace -FORCELOWMEM
datalist
startbulk
cfgmgr_adddiffs replace.xnd -reverse_diffs -match "(a|b)"
cfgmgr_endbulk -openconfig
datalist
# Arguments.
cfgmgr_endbulk a b
cfgmgr_endbulk -bogus
cfgmgr_endbulk f -atomic -atomic -atomic
cfgmgr_endbulk
cfgmgr_adddiffs
cfgmgr_adddiffs f1 f2
cfgmgr_adddiffs f -match
cfgmgr_adddiffs f -dest /a -dest /b
cfgmgr_adddiffs f -reverse_diffs -filter a -match b -dest c x
cfgmgr_adddiffs f -reverse_diffs -filter a -match b -dest
cfgmgr_adddiffs change.xnd
cfgmgr_adddiffs -reverse_diffs
