# An in-service-upgrade bulk stores without verification and leaves its
# items unscanned; cfgmgr_issu_end verifies them.
/
create /tarvo/verifiers/small string "/v/* uint32 1..10"
startbulk -issu
create /v/a uint32 50
create /v/b uint32 5
endbulk
get /v/a
cfgmgr_issu_end
cfgmgr_issu_end
