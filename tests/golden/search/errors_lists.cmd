# The errors list after a bulk end that was not atomic (an entry of each
# operation kind; a refused delete shows the stored value it would have
# removed), the unscanned list of an in-service-upgrade bulk, the apply
# errors of its end, the clear commands and the argument checks.
/
create /tarvo/verifiers/small string "/r/* uint32 1..10"
create /r/have uint32 1
create /r/gone uint32 2
errorslist
startbulk
create /r/have uint32 3
set /r/missing uint32 4
set /r/have string text
delete /r/nothing
delete_cond /r/gone uint32 5
create /r/big uint32 99
create /r/new uint32 5
endbulk
errorslist
errorslist -num 2 foo
errorslist -apply_errors
errorslist -num
errorslist -num x
errorslist a b c d
startbulk -issu
create /r/u1 uint32 50
create /r/u2 uint32 6
endbulk
cfgmgr_get_unscanned
cfgmgr_issu_end
cfgmgr_get_unscanned
cfgmgr_get_applyerror any words
errorslist -APPLY_ERRORS
cfgmgr_clear_applyerror
cfgmgr_get_applyerror
cfgmgr_clear_unscanned
