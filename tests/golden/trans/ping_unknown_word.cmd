# A word of no part of the target ends ping's walk: the later words are
# ignored and the ping runs, but the command fails (here ending the run).
/
ping -active -bogus -memberset
ping
