# A listing that fails ends a run under -e like any failing command.
/
ls /nothing/
help
