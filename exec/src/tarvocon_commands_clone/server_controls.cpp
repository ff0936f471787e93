/*
 * Server controls: settimeout, suspendvrfn and resumevrfn, edmnotify, ping
 * and cfgmgr_issu_end. verification_suspended follows the results of
 * suspendvrfn and resumevrfn in the dispatcher (dispatch.cpp).
 *
 * Results: 0 on success, 1 after a reported failure; settimeout and
 * edmnotify return an integer parser's or value builder's own code, without
 * a message of their own, when a number or value does not parse.
 */
#include <assert.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <iterator>

#include "tarvocon.h"
#include "tarvocon_commands_clone/options.h"

static int tarvocon_control_excess(void)
{
    vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
    return 1;
}

/* ---- settimeout ---- */

int tarvocon_settimeout(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count > 2)
        return tarvocon_control_excess();
    if (count == 1) {
        tarvocon_trans_timeout[0] = tarvocon_default_trans_timeout[0];
        tarvocon_trans_timeout[1] = tarvocon_default_trans_timeout[1];
    } else {
        uint32_t seconds = 0;
        int rc = tarvocon_parse_uint32(tokens[1], &seconds);
        if (rc != 0)
            return rc;
        tarvocon_trans_timeout[0] = seconds;
    }
    /* Nothing reaches the server: the next starttrans passes the value. */
    printf("Timeout set successfully\n");
    return 0;
}

/* ---- suspendvrfn, resumevrfn ---- */

int tarvocon_vrfnsusp(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    (void)tokens; /* read by the assertion only */
    if (count > 1)
        return tarvocon_control_excess();
    int32_t code = tarvo_verification_suspend(tarvocon_bind_handle);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_vrfnsusp(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Verification suspended successfully\n");
    return 0;
}

int tarvocon_vrfnres(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    (void)tokens; /* read by the assertion only */
    if (count > 1)
        return tarvocon_control_excess();
    int32_t code = tarvo_verification_resume(tarvocon_bind_handle);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_vrfnres(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Verification resumed successfully\n");
    return 0;
}

/* ---- edmnotify ---- */

/* The event words, matched exactly (case matters), and which of the values
 * token 4 (and token 5) stand for. */
struct tarvocon_edm_event_td {
    const char *word;
    tarvo_event_td event;
    int has_old;
    int has_new;
};

static const tarvocon_edm_event_td TARVOCON_EDM_EVENTS[] = {
    {"set", TARVO_EVENT_SET, 1, 1},
    {"create", TARVO_EVENT_CREATE, 0, 1},
    {"delete", TARVO_EVENT_DELETE, 1, 0},
};

/* One value of a notification: an integer lives in `scratch`, a packed
 * value is the tuple library's and is released with tuple_free. */
struct tarvocon_edm_value_td {
    uint64_t scratch;
    const void *value;
    uint32_t length;
    tuple_buf *packed;
};

static int tarvocon_edm_counts(uint32_t count)
{
    const vel_msgdef_td *missing = nullptr;
    if (count == 1)
        missing = tarvocon_msg_sc_missname();
    else if (count == 2)
        missing = tarvocon_msg_sc_misstype();
    else if (count == 3)
        missing = tarvocon_msg_sc_missevent();
    else if (count == 4)
        missing = tarvocon_msg_sc_missvalue();
    if (missing == nullptr)
        return 0;
    vel_printmsg(missing, VEL_SEVERITY_WARNING);
    return 1;
}

/* The event of token 3 with its own count checks; null after a report. */
static const tarvocon_edm_event_td *tarvocon_edm_event(char **tokens,
                                                       uint32_t count)
{
    for (const auto &event : TARVOCON_EDM_EVENTS) {
        if (strcmp(tokens[3], event.word) != 0)
            continue;
        uint32_t wanted = 4 + (uint32_t)event.has_old + (uint32_t)event.has_new;
        if (count < wanted) {
            vel_printmsg(tarvocon_msg_sc_missvalue(), VEL_SEVERITY_WARNING);
            return nullptr;
        }
        if (count > wanted) {
            tarvocon_control_excess();
            return nullptr;
        }
        return &event;
    }
    vel_printmsg(tarvocon_msg_sc_event(), VEL_SEVERITY_WARNING, tokens[3]);
    return nullptr;
}

/* Builds one value of `datatype` from `token`: uint32, uint64, string and
 * packed only. */
static int tarvocon_edm_value(tarvo_item_datatype_td datatype, char *token,
                              tarvocon_edm_value_td *value)
{
    int rc = 0;
    switch (datatype) {
    case TARVO_DATATYPE_UINT32: {
        uint32_t number = 0;
        rc = tarvocon_parse_uint32(token, &number);
        memcpy(&value->scratch, &number, sizeof(number));
        value->length = sizeof(number);
        break;
    }
    case TARVO_DATATYPE_UINT64:
        rc = tarvocon_parse_uint64(token, &value->scratch);
        value->length = sizeof(value->scratch);
        break;
    case TARVO_DATATYPE_STRING:
        value->value = token;
        value->length = (uint32_t)strlen(token) + 1;
        return 0;
    case TARVO_DATATYPE_PACKED:
        rc = tarvocon_create_packed(token, &value->packed, &value->length);
        value->value = value->packed;
        return rc;
    default:
        vel_printmsg(tarvocon_msg_sc_interr(), VEL_SEVERITY_NOTICE);
        return 1;
    }
    value->value = &value->scratch;
    return rc;
}

static int tarvocon_edm_request(char **tokens,
                                const tarvocon_edm_event_td *event,
                                tarvo_item_datatype_td datatype,
                                tarvocon_edm_value_td *old_value,
                                tarvocon_edm_value_td *new_value)
{
    int rc = 0;
    if (event->has_old)
        rc = tarvocon_edm_value(datatype, tokens[4], old_value);
    if (rc == 0 && event->has_new)
        rc = tarvocon_edm_value(datatype, tokens[event->has_old ? 5 : 4],
                                new_value);
    if (rc != 0)
        return rc;
    tarvo_edm_notification_td request = {
        tokens[1],         event->event,      (uint32_t)datatype,
        old_value->value,  old_value->length, new_value->value,
        new_value->length};
    int32_t code =
        tarvo_edm_notification_generate(tarvocon_bind_handle, &request);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_edm_not(), VEL_SEVERITY_WARNING,
                     errcode_strerror(code));
        return 1;
    }
    printf("Notifications for item %s successfully requested\n", tokens[1]);
    return 0;
}

int tarvocon_edm_not(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (tarvocon_edm_counts(count) != 0)
        return 1;
    const tarvocon_edm_event_td *event = tarvocon_edm_event(tokens, count);
    if (event == nullptr)
        return 1;
    tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
    if (tarvocon_get_datatype(tokens[2], &datatype) != 0)
        return 1;
    tarvocon_edm_value_td old_value = {0, nullptr, 0, nullptr};
    tarvocon_edm_value_td new_value = {0, nullptr, 0, nullptr};
    int rc = tarvocon_edm_request(tokens, event, datatype, &old_value,
                                  &new_value);
    if (old_value.packed != nullptr)
        tuple_free(old_value.packed);
    if (new_value.packed != nullptr)
        tuple_free(new_value.packed);
    return rc;
}

/* ---- ping ---- */

/* The roles a target may have, by group (rows) and plane (columns). */
static const uint32_t PING_TABLE[4][3] = {
    {0xb, 0xb, 0xb}, /* memberset */
    {0xb, 0xb, 0xb}, /* physical */
    {0x0, 0x0, 0x0}, /* complement */
    {0x7, 0x7, 0x7}, /* other */
};

/* The words of each part of the target; the value is the part's number
 * (the role words' values are role bits, but a later word replaces an
 * earlier one all the same). "-id" takes the token after it as the target
 * id. All five tables are ping's option words. */
static const tarvocon_option_td TARVOCON_PING_GROUP_WORDS[] = {
    {"-memberset", TARVO_PING_GROUP_MEMBERSET, 0},
    {"-physical", TARVO_PING_GROUP_PHYSICAL, 0},
    {"-complement", TARVO_PING_GROUP_COMPLEMENT, 0},
    {"-other", TARVO_PING_GROUP_OTHER, 0},
};
static const tarvocon_option_td TARVOCON_PING_PLANE_WORDS[] = {
    {"-admin", TARVO_PING_PLANE_ADMIN, 0},
    {"-shared", TARVO_PING_PLANE_SHARED, 0},
    {"-local", TARVO_PING_PLANE_LOCAL, 0},
};
static const tarvocon_option_td TARVOCON_PING_ROLE_WORDS[] = {
    {"-active", TARVO_PING_ROLE_ACTIVE, 0},
    {"-standby", TARVO_PING_ROLE_STANDBY, 0},
    {"-all", TARVO_PING_ROLE_ALL, 0},
    {"-unknown", TARVO_PING_ROLE_UNKNOWN, 0},
};
static const tarvocon_option_td TARVOCON_PING_VERSION_WORDS[] = {
    {"-versioned", 1, 0},
    {"-unversioned", 0, 0},
};
static const tarvocon_option_td TARVOCON_PING_ID_WORDS[] = {
    {"-id", 0, 1},
};
const tarvocon_option_table_td tarvocon_ping_group_options =
    tarvocon_option_table(TARVOCON_PING_GROUP_WORDS);
const tarvocon_option_table_td tarvocon_ping_plane_options =
    tarvocon_option_table(TARVOCON_PING_PLANE_WORDS);
const tarvocon_option_table_td tarvocon_ping_role_options =
    tarvocon_option_table(TARVOCON_PING_ROLE_WORDS);
const tarvocon_option_table_td tarvocon_ping_version_options =
    tarvocon_option_table(TARVOCON_PING_VERSION_WORDS);
const tarvocon_option_table_td tarvocon_ping_id_options =
    tarvocon_option_table(TARVOCON_PING_ID_WORDS);

struct tarvocon_ping_target_td {
    uint32_t group;
    uint32_t plane;
    uint32_t roles;
    uint32_t versioned;
    int32_t id;
};

static const uint32_t TARVOCON_PING_MAX_TOKENS = 5;

/* Sets the part of the target that `word` names; 0 when it names none. */
static int tarvocon_ping_word(const char *word,
                              tarvocon_ping_target_td *target)
{
    const struct {
        const tarvocon_option_table_td *table;
        uint32_t *part;
    } parts[] = {
        {&tarvocon_ping_group_options, &target->group},
        {&tarvocon_ping_plane_options, &target->plane},
        {&tarvocon_ping_role_options, &target->roles},
        {&tarvocon_ping_version_options, &target->versioned},
    };
    for (const auto &part : parts) {
        const tarvocon_option_td *option =
            tarvocon_find_option(part.table, word);
        if (option != nullptr) {
            *part.part = option->bits;
            return 1;
        }
    }
    return 0;
}

/* Walks the words; 1 when the walk stopped at a word of no part (the later
 * words are ignored and the ping still runs), -1 after a reported error. */
static int tarvocon_ping_walk(char **tokens, uint32_t count,
                              tarvocon_ping_target_td *target)
{
    for (uint32_t i = 1; i < count; i++) {
        if (tarvocon_find_option(&tarvocon_ping_id_options, tokens[i]) !=
            nullptr) {
            if (i + 1 >= count) {
                vel_printmsg(tarvocon_msg_sc_badformat(),
                             VEL_SEVERITY_WARNING);
                return -1;
            }
            target->id = atoi(tokens[++i]);
            continue;
        }
        if (!tarvocon_ping_word(tokens[i], target))
            return 1;
    }
    return 0;
}

int tarvocon_ping(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    if (count > TARVOCON_PING_MAX_TOKENS)
        return tarvocon_control_excess();
    tarvocon_ping_target_td target = {
        TARVO_PING_GROUP_OTHER, TARVO_PING_PLANE_SHARED, TARVO_PING_ROLE_ALL,
        0, 0};
    int stopped = tarvocon_ping_walk(tokens, count, &target);
    if (stopped < 0)
        return 1;
    printf("TEST ID: 0x%x. 0x%x. 0x%x\n", target.group, target.plane,
           target.roles);
    uint32_t allowed = PING_TABLE[target.group][target.plane];
    printf("PING_TABLE: 0x%x\n", allowed);
    if ((allowed & target.roles) == 0) {
        printf("This type of target isn't allowed to set: 0x%x\n",
               target.roles);
        return 1;
    }
    int32_t code = tarvo_ping(tarvocon_bind_handle, target.group, target.plane,
                              target.roles, target.versioned, target.id);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_generic(), VEL_SEVERITY_WARNING, "ping",
                     errcode_strerror(code));
        return 1;
    }
    printf("ping successfully with dummy\n");
    return stopped;
}

/* ---- cfgmgr_issu_end ---- */

int tarvocon_cfgmgr_issu_end(char **tokens, uint32_t count)
{
    assert(tokens != nullptr);
    (void)tokens; /* read by the assertion only */
    (void)count; /* further tokens are ignored */
    int32_t code = tarvo_cfgmgr_issu_mdr_end(tarvocon_bind_handle);
    if (code != 0) {
        vel_printmsg(tarvocon_msg_sc_generic(), VEL_SEVERITY_WARNING,
                     "issu end", errcode_strerror(code));
        return 1;
    }
    printf("Issu end performed successfully\n");
    return 0;
}
