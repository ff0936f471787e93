/*
 * Item locks: rdlock, wrlock, unlock. A lock covers the subtree at the path
 * given, or the bind point itself without one, and belongs to the bind;
 * other consoles are refused while it is held.
 *
 * Results: 0 on success, 1 after a reported failure. A failure shows the
 * code's text only; the path is not repeated.
 */
#include <assert.h>
#include <stdio.h>
#include <string.h>

#include "tarvocon.h"

/* One lock command: its request, success line and failure message. */
struct tarvocon_lock_command_td {
    int (*request)(tarvo_bind_h_td handle, const char *path);
    const char *success_line;
    const vel_msgdef_td *(*failure)(void);
};

static const tarvocon_lock_command_td TARVOCON_RDLOCK = {
    tarvo_item_rdlock, "Read lock acquired successfully\n",
    tarvocon_msg_sc_rdlock};
static const tarvocon_lock_command_td TARVOCON_WRLOCK = {
    tarvo_item_wrlock, "Write lock acquired successfully\n",
    tarvocon_msg_sc_wrlock};
static const tarvocon_lock_command_td TARVOCON_UNLOCK = {
    tarvo_item_unlock, "Lock released successfully\n",
    tarvocon_msg_sc_unlock};

static int tarvocon_run_lock(const tarvocon_lock_command_td *command,
                             char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count > 2) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    char path[TARVOCON_PATH_SIZE] = {0};
    if (count == 2)
        strncpy(path, tokens[1], sizeof(path) - 1);
    int32_t code = command->request(tarvocon_bind_handle, path);
    if (code != 0) {
        vel_printmsg(command->failure(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    fputs(command->success_line, stdout);
    return 0;
}

int tarvocon_rdlock(char **tokens, uint32_t count)
{
    return tarvocon_run_lock(&TARVOCON_RDLOCK, tokens, count);
}

int tarvocon_wrlock(char **tokens, uint32_t count)
{
    return tarvocon_run_lock(&TARVOCON_WRLOCK, tokens, count);
}

int tarvocon_unlock(char **tokens, uint32_t count)
{
    return tarvocon_run_lock(&TARVOCON_UNLOCK, tokens, count);
}
