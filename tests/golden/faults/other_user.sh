# Sourced by the .prep and .wrap scripts of the permission cases. File modes
# deny root nothing, so under root the console that must be refused runs as
# the unprivileged user 65534 ("nobody"), and the case's directory is opened
# to it for reading; under any other user that console runs as the user
# itself and the modes alone refuse it. The outputs are the same either way.
if [ "$(id -u)" = 0 ]; then
    as_root=1
    as_reader() { setpriv --reuid=65534 --regid=65534 --clear-groups -- "$@"; }
else
    as_root=0
    as_reader() { "$@"; }
fi

# Leaves the console's stores in place and takes away the reader's right to
# write the data directory: under root the directory and its files become
# readable by everybody (and stay root's); otherwise the directory loses
# its write permission.
deny_writing_dir() {
    if [ "$as_root" = 1 ]; then
        chmod 755 . "$TARVO_DATA_DIR" && chmod 644 "$TARVO_DATA_DIR"/*
    else
        chmod 555 "$TARVO_DATA_DIR"
    fi
}
