# settimeout, suspendvrfn, resumevrfn and cfgmgr_issu_end: argument checks,
# and verification skipped for this bind while suspended.
/
settimeout 1 2
settimeout abc
settimeout 60
settimeout
suspendvrfn x
resumevrfn x
create /tarvo/verifiers/small string "/v/* uint32 1..10"
create /v/a uint32 50
suspendvrfn
create /v/a uint32 50
resumevrfn
set /v/a uint32 60
get /v/a
cfgmgr_issu_end
cfgmgr_issu_end any words
