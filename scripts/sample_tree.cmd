# The sample tree the run script loads into an empty store on its first run:
# a small node configuration under /cfg/ and its operational state under
# /oper/, with items of every scalar datatype and a packed one. Bag items are
# added by a file of their own.
/
create /cfg/system/hostname string "node-1"
create /cfg/system/description string "Sample node for the tarvo console"
create /cfg/system/location string "rack 4, slot 2"
create /cfg/system/node_id uint32 1
create /cfg/system/boot_count uint64 0
create /cfg/system/timezone_offset int16 60
create /cfg/system/log_level uint8 3
create /cfg/system/debug int8 0
create /cfg/interfaces/eth0/mtu uint16 1500
create /cfg/interfaces/eth0/enabled uint8 1
create /cfg/interfaces/eth0/address string "10.0.0.1/24"
create /cfg/interfaces/eth0/speed_mbps uint32 10000
create /cfg/interfaces/eth1/mtu uint16 9000
create /cfg/interfaces/eth1/enabled uint8 0
create /cfg/interfaces/eth1/address string "192.168.1.1/24"
create /cfg/interfaces/eth1/speed_mbps uint32 25000
create /cfg/routing/default_gateway string "10.0.0.254"
create /cfg/routing/metric int32 -1
create /cfg/routing/max_paths uint8 8
create /cfg/limits/max_sessions uint32 4096
create /cfg/limits/memory_bytes uint64 0x100000000
create /cfg/limits/min_temperature int8 -40
create /cfg/limits/max_temperature int8 85
create /cfg/limits/clock_skew_ns int64 -250000
create /cfg/services/ssh/port uint16 22
create /cfg/services/ssh/banner string "Authorised use only"
create /cfg/services/ntp/server string "ntp.example.net"
create /cfg/services/ntp/poll_interval int32 64
create /cfg/services/peer packed dsd
7
"peer-a"
179
create /oper/system/uptime_seconds uint64 86400
create /oper/system/load_average string "0.42 0.35 0.30"
create /oper/system/temperature int8 41
create /oper/interfaces/eth0/rx_packets uint64 123456789
create /oper/interfaces/eth0/tx_packets uint64 98765432
create /oper/interfaces/eth0/errors uint32 0
create /oper/interfaces/eth0/link_state string "up"
create /oper/interfaces/eth1/rx_packets uint64 0
create /oper/interfaces/eth1/tx_packets uint64 0
create /oper/interfaces/eth1/errors uint32 3
create /oper/interfaces/eth1/link_state string "down"
create /oper/routing/route_count uint32 12
create /oper/routing/last_change_delta int64 -30
create /oper/alarms/active uint16 1
create /oper/alarms/last string "eth1 link down"
