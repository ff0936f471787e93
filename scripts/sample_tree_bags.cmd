# Bag items for the sample tree, loaded after scripts/sample_tree.cmd: an
# interface record (sample type interface 1.0) and a static route (sample
# type static_route 1.0). The lines after each create answer the bag
# dialogue in the order it asks: the version, then for each step the choice
# (only where there are several) and the value.
/
create /cfg/interfaces/eth0/record bag interface
1
0
eth0
1
1500
1
10.0.0.1
2
123456
654321
0
2
create /cfg/routing/static/default bag static_route
1
0
0.0.0.0
0
10.0.0.254
1
10.0.0.253
2
2
192.168.1.254
1
1
