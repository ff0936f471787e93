# Names and values with quotes and blanks pass through exactly as tokenised.
/
create "a b" string "say \"hi\""
get "a b"
create q'x string it's
get q'x
create "  lead" uint8 1
get "  lead"
match "a b" "say \"hi\""
delete "a b"
get "a b"
