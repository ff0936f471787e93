# verify: checks a value against the verifier rules without storing it.
/
create /tarvo/verifiers/small string "/v/* uint32 1..10"
verify /v/a uint32 5
verify /v/a uint32 11
verify /v/a string x
get /v/a
create /v/a uint32 11
create /v/a uint32 10
verify /v/a uint32 12
verify /v/a uint8 1
verify /v/a uint32 0x1FFFFFFFF
verify /v/a uint32
verify /v/a uint32 1 1
verify /other uint32 99
