# The command file ends while the dialogue waits for an answer: the
# console reports that no data is left and ends with status 0; nothing
# is stored.
/
create e bag g_record
1
0
2
