# nothing

#

