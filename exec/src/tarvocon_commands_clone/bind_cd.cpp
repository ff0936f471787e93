/*
 * bind and cd: replace the current bind; resolution of relative paths
 * against the bind point; release of a bind.
 *
 * A new bind is made first; only when it succeeded is the old one cleaned
 * (its transaction and bulk operation aborted) and released, so a failed
 * bind/cd leaves everything as it was.
 */
#include <assert.h>
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"
#include "tarvocon_commands_clone/options.h"

/* Probe results that say nothing worth a warning about the new bind point. */
static const int32_t TARVOCON_PROBE_SILENT[] = {
    TARVO_ERR_NOT_SUPPORTED, TARVO_ERR_NOT_A_DIR, TARVO_ERR_BUSY,
    TARVO_ERR_NO_PERMISSION};

/* Compared exactly (case matters). -F is looked at only when the token
 * before the last is not -o. */
static const tarvocon_option_td TARVOCON_CD_OPTION_WORDS[] = {
    {"-d", 0, 0},
    {"-m", TARVO_BIND_OPTION_MGMT, 0},
    {"-c", TARVO_BIND_OPTION_SCRATCHPAD, 0},
    {"-l", TARVO_BIND_OPTION_LOCAL_PLANE, 0},
    {"-s", TARVO_BIND_OPTION_SHARED_STATIC, 0},
    {"-n", TARVO_BIND_OPTION_SHARED_NONCFG, 0},
    {"-D", TARVO_BIND_OPTION_SHARED_DATA, 0},
    {"-a", TARVO_BIND_OPTION_ADMIN_PLANE, 0},
    {"-v", TARVO_BIND_OPTION_BIT31, 0},
    {"-o", 0, 1},
    {"-F", TARVO_BIND_OPTION_NG_DIRECT, 0},
};
const tarvocon_option_table_td tarvocon_cd_options =
    tarvocon_option_table(TARVOCON_CD_OPTION_WORDS);

static int tarvocon_cd_is_direct(const tarvocon_option_td *option)
{
    return option != nullptr && option->bits == TARVO_BIND_OPTION_NG_DIRECT;
}

/* The number after -o: decimal, octal with "0", hexadecimal with "0x";
 * reading stops at the first character that is not a digit. A value beyond
 * 32 bits reads as 0xffffffff; text that does not start with a digit as 0. */
static uint32_t tarvocon_cd_number(const char *text)
{
    if (!isdigit((unsigned char)text[0]))
        return 0;
    errno = 0;
    unsigned long long value = strtoull(text, nullptr, 0);
    if (errno == ERANGE || value > UINT32_MAX)
        return UINT32_MAX;
    return (uint32_t)value;
}

/* Takes the option off the end of the tokens: returns the options word and
 * lowers *count by the tokens it used. Only the last token (and for -o the
 * last two) can be an option. */
static uint32_t tarvocon_cd_take_options(char **tokens, uint32_t *count,
                                         uint32_t current)
{
    if (*count < 2)
        return current;
    const char *last = tokens[*count - 1];
    const tarvocon_option_td *option =
        tarvocon_find_option_exact(&tarvocon_cd_options, last);
    if (option != nullptr && !option->argument &&
        !tarvocon_cd_is_direct(option)) {
        *count -= 1;
        return option->bits;
    }
    if (*count >= 3) {
        const tarvocon_option_td *before = tarvocon_find_option_exact(
            &tarvocon_cd_options, tokens[*count - 2]);
        if (before != nullptr && before->argument) {
            *count -= 2;
            return tarvocon_cd_number(last);
        }
    }
    if (tarvocon_cd_is_direct(option)) {
        *count -= 1;
        return option->bits;
    }
    return current;
}

/* Adds the /cfg/ bit to a bind below /cfg/ and warns about it. */
static uint32_t tarvocon_cfg_rule(const char *path, uint32_t options)
{
    if (!(options & TARVO_BIND_OPTION_CFG) && strncmp(path, "/cfg/", 5) == 0) {
        options |= TARVO_BIND_OPTION_CFG;
        fputs(tarvocon_cfg_warning, stdout);
    }
    return options;
}

/* Ends what belonged to the old bind and installs the new one. */
static void tarvocon_cd_switch(tarvo_bind_h_td handle, const char *path,
                               uint32_t options, tarvocon_state_td *state)
{
    if (tarvocon_verbose)
        printf("cd/bind returns successfully\n");
    if (tarvocon_bind_handle != nullptr) {
        (void)tarvo_transaction_abort(tarvocon_bind_handle);
        (void)tarvo_bulk_abort(tarvocon_bind_handle);
        tarvocon_unbind(tarvocon_bind_handle);
    }
    if (state != nullptr) {
        if (state->transaction_open) {
            if (state->list_start != nullptr) {
                tarvocon_abort_transaction(state);
                tarvocon_tran_delete_command(state);
            }
            state->transaction_open = 0;
            state->transaction_buffered = 0;
        }
        state->bulk_open = 0;
        state->verification_suspended = 0;
        state->bind_options = options;
    }
    tarvocon_bind_handle = handle;
    snprintf(tarvocon_bind_point, TARVOCON_PATH_SIZE, "%s", path);
}

/* Lists one entry of the new bind point to warn when it does not exist. */
static void tarvocon_cd_probe(const char *path)
{
    uint32_t count = 1;
    tarvo_list_h_td list = nullptr;
    int code = tarvo_list(tarvocon_bind_handle, "", "", &count, &list, 0);
    if (code == 0) {
        tarvo_list_free(list);
        return;
    }
    for (int32_t silent : TARVOCON_PROBE_SILENT) {
        if (code == silent)
            return;
    }
    if (code == TARVO_ERR_NOT_FOUND)
        vel_printmsg(tarvocon_msg_sc_bind_notfound(), VEL_SEVERITY_WARNING);
    else
        vel_printmsg(tarvocon_msg_sc_rebind(), VEL_SEVERITY_WARNING, path,
                     errcode_strerror(code));
}

int tarvocon_cd(char **tokens, uint32_t count, tarvocon_state_td *state)
{
    assert(tokens != nullptr);
    uint32_t current = state != nullptr ? state->bind_options : 0;
    uint32_t options = tarvocon_cd_take_options(tokens, &count, current);

    char path[TARVOCON_PATH_SIZE] = "/";
    if (count >= 3) {
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    if (count == 2 && tarvocon_create_path(tokens[1], path) != 0)
        return 1;

    if (options & TARVO_BIND_OPTION_SCRATCHPAD) {
        path[0] = '\0';
        if (count == 2)
            printf("Ignoring bind path for scratchpad connection.\n");
    }
    options = tarvocon_cfg_rule(path, options);
    if (tarvocon_verbose)
        printf("binding to '%s' with options 0x%x\n", path, options);

    tarvo_bind_h_td handle = nullptr;
    int code = TARVOCON_ERR_NO_LIBRARY;
    if (tarvocon_library_present())
        code = _tarvo_bind(&handle, path, options);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_rebind(), VEL_SEVERITY_WARNING, path,
                     errcode_strerror(code));
        return 1;
    }
    tarvocon_cd_switch(handle, path, options, state);
    tarvocon_cd_probe(path);
    return 0;
}

void tarvocon_unbind(tarvo_bind_h_td handle)
{
    if (handle != nullptr && tarvocon_library_present())
        (void)_tarvo_unbind(handle);
}

/* ---- Path resolution ---- */

namespace {

/* The path being built, never longer than the buffer allows. */
struct tarvocon_path_work_td {
    char *text;
    size_t length;
};

int tarvocon_path_append(tarvocon_path_work_td *work, const char *part,
                         size_t part_length)
{
    if (work->length + part_length > TARVOCON_PATH_SIZE - 1)
        return 1;
    memcpy(work->text + work->length, part, part_length);
    work->length += part_length;
    work->text[work->length] = '\0';
    return 0;
}

/* One level up: "/a/b/" becomes "/a/". */
int tarvocon_path_up(tarvocon_path_work_td *work)
{
    if (work->length < 2)
        return 1;
    if (work->text[work->length - 1] == '/')
        work->length--;
    while (work->length > 0 && work->text[work->length - 1] != '/')
        work->length--;
    work->text[work->length] = '\0';
    return work->length == 0 ? 1 : 0;
}

/* Appends the components of a relative path, consuming it from the start. */
int tarvocon_path_relative(tarvocon_path_work_td *work, const char *local)
{
    const char *p = local;
    while (*p != '\0') {
        if (strncmp(p, "../", 3) == 0 || strcmp(p, "..") == 0) {
            if (tarvocon_path_up(work) != 0)
                return 1;
            p += p[2] == '/' ? 3 : 2;
        } else if (strncmp(p, "./", 2) == 0 || strcmp(p, ".") == 0) {
            p += p[1] == '/' ? 2 : 1;
        } else if (*p == '/') {
            p++;
        } else {
            /* Joined as it stands: a bind point without its closing "/"
             * (a command file's first line) runs into the component. */
            const char *slash = strchr(p, '/');
            if (slash == nullptr)
                return tarvocon_path_append(work, p, strlen(p)) ||
                       tarvocon_path_append(work, "/", 1);
            if (tarvocon_path_append(work, p, (size_t)(slash - p) + 1) != 0)
                return 1;
            p = slash + 1;
        }
    }
    return 0;
}

} // namespace

int tarvocon_create_path(const char *local_path, char *fqpath)
{
    assert(local_path != nullptr && fqpath != nullptr);
    tarvocon_path_work_td work = {fqpath, 0};
    fqpath[0] = '\0';
    int failed;
    if (strlen(local_path) > TARVOCON_PATH_SIZE - 1) {
        failed = 1;
    } else if (local_path[0] == '/') {
        size_t length = strlen(local_path);
        failed = tarvocon_path_append(&work, local_path, length);
        if (!failed && local_path[length - 1] != '/')
            failed = tarvocon_path_append(&work, "/", 1);
    } else {
        failed = tarvocon_path_append(&work, tarvocon_bind_point,
                                      strnlen(tarvocon_bind_point,
                                              TARVOCON_PATH_SIZE - 1));
        if (!failed)
            failed = tarvocon_path_relative(&work, local_path);
    }
    if (failed)
        vel_printmsg(tarvocon_msg_sc_pathcreate(), VEL_SEVERITY_WARNING,
                     tarvocon_bind_point, local_path);
    return failed;
}
