# Sourced by the .prep of a case whose commands must arrive over time: the
# console reads the case's command file from the fifo "commands" (give it
# "-f @TMP@/commands" in .args), fed line by line by a background writer;
# a line "# pause N", a comment to the console, holds the rest back for N
# seconds. The writer gives up after two minutes if no console opens the
# fifo. The writer reads the case's own file in the suite folder: the
# runner copies it into the temporary directory only after this script ends.
case_name=$(basename "$0" .prep)
case_dir=$(dirname "$0")
mkfifo commands
timeout 120 bash -c '
    exec > commands
    while IFS= read -r line; do
        case $line in
        "# pause "*) sleep "${line#\# pause }" ;;
        esac
        printf "%s\n" "$line"
    done' < "$case_dir/$case_name.cmd" &
