/*
 * do and config: hand one line to the system's configuration program
 * ("config -p 15 -r") through a pipe and wait until it has ended. The
 * program's output goes straight to the console's standard output and
 * standard error.
 */
#include <assert.h>
#include <stdio.h>

#include "tarvocon.h"

/* perror writes to standard error: what is already on standard output must
 * come first. */
static void tarvocon_report_errno(const char *text)
{
    fflush(stdout);
    perror(text);
}

int tarvocon_do(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    static char program[] = "config", page[] = "-p", lines[] = "15",
                raw[] = "-r";
    char *const argv[] = {program, page, lines, raw, nullptr};
    FILE *stream = tarvocon_popen_w(argv);
    if (stream == nullptr) {
        tarvocon_report_errno("Can't spawn config");
        return 1;
    }
    /* Tokens go as plain text: a token holding blanks arrives as several
     * words. */
    for (uint32_t i = 0; i < count; i++)
        fprintf(stream, "%s%s", tokens[i], i + 1 < count ? " " : "\n");
    if (tarvocon_pclose(stream) != 0) {
        tarvocon_report_errno("Error closing pipe to config");
        return 1;
    }
    return 0;
}

int tarvocon_config(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count < 2)
        return 0;
    return tarvocon_do(tokens + 1, count - 1);
}
