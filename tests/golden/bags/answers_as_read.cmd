# Answers are the lines as read: a line starting with "#" is an answer
# (here an enum value, 0, which the encoder refuses), and a last answer
# without a newline is echoed without one.
/
create a bag g_anon
1
0
#1
get a
create n bag g_count
1
0
-1