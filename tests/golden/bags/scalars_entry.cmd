# Every scalar type through the bag dialogue: integers through atoi and
# their widths (300 as uint8 is 44, text is 0, -1 as uint64 is all ones),
# an address, an enum, a bool, bounded and unbounded strings, refused
# opaque answers (odd digit count, not hex, too long, too short) and a
# quoted one; then the stored bag through get.
/cfg/
create s bag g_scalars
1
0
-1
300
-2
abc
-1
305419896
-1
-1
192.168.1.20
2
1
eth0 up

fff
zz
0102030405
FF 12

"ab"
get s
