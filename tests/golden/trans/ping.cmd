# ping: the target's words, PING_TABLE, refused targets, and "-id".
/
ping
ping -physical -active
PING -Memberset -Admin -Standby -Versioned
ping -memberset
ping -complement -active
ping -other -unknown
ping -local -all -standby
ping -id 0 -versioned
ping -id 3
ping -id
ping -a -b -c -d -e
