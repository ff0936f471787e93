# Argument checks of the transaction commands, and the answers without an
# open transaction.
/
starttrans -b 1 2 3 4
starttrans bogus
starttrans -b -bogus
starttrans 99999999999
committrans now
aborttrans now
committrans
aborttrans
starttrans
starttrans -b
committrans
