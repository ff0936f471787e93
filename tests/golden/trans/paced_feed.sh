# Sourced by the .prep of a case whose commands must arrive over time: the
# console reads the case's command file from the fifo "commands" (give it
# "-f @TMP@/commands" in .args), fed line by line by a background writer;
# a line "# pause N", a comment to the console, holds the rest back for N
# seconds. The writer gives up after two minutes if no console opens the
# fifo.
case_name=$(basename "$0" .prep)
mkfifo commands
timeout 120 bash -c '
    exec > commands
    while IFS= read -r line; do
        case $line in
        "# pause "*) sleep "${line#\# pause }" ;;
        esac
        printf "%s\n" "$line"
    done' < "$case_name.cmd" &
