# A bind that is refused ends a run under -e like any failing command.
/a/
cd ../..
help
