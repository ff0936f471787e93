# Damaged, foreign and cut files are refused with what is wrong, and the
# store is left as it was; the good ones restore.
/
create /t/keep uint32 7
filerestore @TMP@/truncated.xnf -dest /t
filerestore @TMP@/header_cut.xnf -dest /t
filerestore @TMP@/empty.xnf -dest /t
filerestore @TMP@/flipped.xnf -dest /t
filerestore @TMP@/header_flipped.xnf -dest /t
filerestore @TMP@/magic.xnf -dest /t
filerestore @TMP@/doubled.xnf -dest /t
filerestore @TMP@/good.xnd -dest /t
filerestore @TMP@/adir.xnf -dest /t
datalist /t
filerestore @TMP@/good.xnf -dest /u
startbulk
cfgmgr_adddiffs @TMP@/truncated.xnd
cfgmgr_adddiffs @TMP@/good.xnf
bulk_num_ops
cfgmgr_adddiffs @TMP@/good.xnd -dest /u
cfgmgr_endbulk
datalist /u
# A save over a file replaces it whole.
filesave @TMP@/good.xnf -src /t
filerestore @TMP@/good.xnf -dest /v
datalist /v
