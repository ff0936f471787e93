/
cd /nope
CD
Bind x/y
q
