#!/usr/bin/env bash
# Installs this build into a scratch tree (DESTDIR) and checks the result:
# the library's names and SONAME, the run path of the installed console, the
# pkg-config file, a client program built against the installed header and
# library, the installed console running a command file, and the installed
# bag schemas. Settings come from the environment (tests/install/CMakeLists.txt).
set -euo pipefail

tmp=$(mktemp -d "${TMPDIR:-/tmp}/install.XXXXXX")
trap 'rm -rf "$tmp"' EXIT
root="$tmp/root"
fail() { echo "install: $*" >&2; exit 1; }

DESTDIR="$root" "$CMAKE_COMMAND" --install "$BUILD_DIR" >/dev/null

# libtarvo.so -> libtarvo.so.MAJOR (the SONAME) -> libtarvo.so.VERSION
lib="$root$LIBDIR"
[ -f "$lib/libtarvo.so.$VERSION" ] || fail "no $LIBDIR/libtarvo.so.$VERSION"
[ "$(readlink "$lib/libtarvo.so.$SOVERSION")" = "libtarvo.so.$VERSION" ] ||
    fail "libtarvo.so.$SOVERSION does not name libtarvo.so.$VERSION"
[ "$(readlink "$lib/libtarvo.so")" = "libtarvo.so.$SOVERSION" ] ||
    fail "libtarvo.so does not name libtarvo.so.$SOVERSION"
soname=$(readelf -d "$lib/libtarvo.so.$VERSION" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = "libtarvo.so.$SOVERSION" ] || fail "SONAME is '$soname'"

# The installed console finds the library through its run path, which names
# the install libdir only (no build folder), unless that libdir is a system one.
runpath=$(readelf -d "$root$BINDIR/tarvocon" | sed -n 's/.*(R[UN]*PATH).*\[\(.*\)\]/\1/p')
[ "$runpath" = "$INSTALL_RPATH" ] || fail "run path of tarvocon is '$runpath', not '$INSTALL_RPATH'"

# pkg-config, seen from inside the scratch tree.
flags=$(PKG_CONFIG_SYSROOT_DIR="$root" PKG_CONFIG_LIBDIR="$lib/pkgconfig" \
        PKG_CONFIG_PATH= "$PKG_CONFIG" --cflags --libs tarvo)
read -r -a flag_words <<<"$flags"
[ "${flag_words[*]}" = "-I$root$INCLUDEDIR -L$lib -ltarvo" ] || fail "pkg-config gives '$flags'"

# A client built from the installed files only.
read -r -a cflags <<<"${CLIENT_CFLAGS:-}"
"$CC" "${cflags[@]}" -o "$tmp/client" "$SOURCE_DIR/client.c" "${flag_words[@]}"
mkdir -p "$tmp/data"
run=(env "LD_LIBRARY_PATH=$lib" "TARVO_DATA_DIR=$tmp/data" "HOME=$tmp")
out=$("${run[@]}" "$tmp/client") || fail "client failed: $out"
expected=$'/probe/answer = 42\nmissing item: not found'
[ "$out" = "$expected" ] || fail "client printed '$out'"

# The installed console and store tool at work on the same data directory.
printf '/\ncreate /probe/n uint32 42\nget /probe/n\n' >"$tmp/probe.cmd"
out=$("${run[@]}" "$root$BINDIR/tarvocon" -f "$tmp/probe.cmd" 2>&1) ||
    fail "tarvocon failed: $out"
out=$(sed -e '1s/^tarvocon rlimit set to [0-9]*$/tarvocon rlimit set to N/' <<<"$out")
expected=$(printf '%s\n' "tarvocon rlimit set to N" "" "Initial bind point: /" "" \
    "Command 1: create /probe/n uint32 42" "Item /probe/n successfully created" "" \
    "Command 2: get /probe/n" \
    "$(printf "[uint32 (len 4)] \t'/probe/n'         42 (0x0000002A)")")
[ "$out" = "$expected" ] || fail "tarvocon printed:"$'\n'"$out"
"${run[@]}" "$root$BINDIR/tarvoctl" info | grep -q '^plane shared: ' ||
    fail "tarvoctl info does not show the shared plane"

# The sample bag schemas load from their installed folder.
bags="$root$DATADIR/tarvo/bags"
"${run[@]}" "$root$BINDIR/tarvo_bagcheck" "$bags" >"$tmp/bags.out" ||
    fail "the installed schemas do not load"
grep -q "	$bags/interface.x:" "$tmp/bags.out" || fail "no bag type from $bags/interface.x"
echo "install: ok"
