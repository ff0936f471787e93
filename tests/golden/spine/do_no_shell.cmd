# do and config start the configuration program without a shell, and the
# words go to its input as text: nothing in them is expanded or run. A
# program that ends without reading, or is killed, leaves the console
# working.
/
do echo $(touch @TMP@/dollar) ; touch @TMP@/semicolon `touch @TMP@/backquote` * ~ $HOME > @TMP@/out
config a|b && c || d $((1+1)) "$(id)" '`id`'
filerestore @TMP@/dollar
filerestore @TMP@/semicolon
filerestore @TMP@/backquote
filerestore @TMP@/out
do the program ends without reading this
config the program is killed before it reads this
do this one is read again
