# Sourced by the .prep and .wrap scripts of the permission cases. File modes
# deny root nothing, so under root the console that must be refused runs
# without the two capabilities that pass it through them (dac_override,
# dac_read_search): it is then held to the modes like the owner of the
# case's files, which is what any other user is. The outputs are the same
# either way, and no other user needs to reach the build tree.
if [ "$(id -u)" = 0 ]; then
    as_reader() { setpriv --bounding-set=-dac_override,-dac_read_search -- "$@"; }
else
    as_reader() { "$@"; }
fi
