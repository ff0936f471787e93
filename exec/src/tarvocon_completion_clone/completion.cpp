/*
 * Completion entry points, in their temporary form until the completion
 * engine (grammar walk, path completion, keyword expansion) is built:
 *   completion_complete_line hands back a copy of the line (TAB changes
 *     nothing);
 *   completion_print_help prints nothing ("?" shows the line again);
 *   completion_expand_line hands back a copy of the line, and no text for a
 *     line without tokens, so that an empty line runs nothing.
 */
#include <assert.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"

/* Copies `line`; the caller frees the copy. */
static char *completion_copy(const char *line)
{
    char *copy = strdup(line);
    assert(copy != nullptr);
    return copy;
}

int completion_complete_line(char *line, char **completed)
{
    if (line == nullptr || completed == nullptr)
        return TARVO_ERR_BAD_VALUE;
    *completed = completion_copy(line);
    return 0;
}

int completion_print_help(char *line)
{
    if (line == nullptr)
        return TARVO_ERR_BAD_VALUE;
    return 0;
}

int completion_expand_line(char *line, char **command)
{
    if (line == nullptr || command == nullptr)
        return TARVO_ERR_BAD_VALUE;
    /* Only blanks separate tokens: a line of blanks has none. A line whose
     * quotes do not match is passed on, and the loop's tokenizer reports it
     * once. */
    if (line[strspn(line, " ")] == '\0')
        return TARVO_ERR_BAD_VALUE;
    *command = completion_copy(line);
    return 0;
}
