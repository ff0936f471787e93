# Not read: the case types its lines (.stdin) so that the prompt shows
# whether the console counts a bulk as open after each cfgmgr_endbulk.
