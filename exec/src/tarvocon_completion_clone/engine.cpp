/*
 * The completion engine: walks the command grammar over the tokens of a
 * line to complete its last word (TAB), to list what may follow ("?") and
 * to expand abbreviated keywords of an entered line.
 *
 * Matching goes token by token from the root. At each node the candidates
 * for the current token are first counted (no database request); a node
 * is entered when exactly one candidate fits or one fits exactly. The first
 * node that meets the last token with a candidate also collects the
 * candidates into the response's list, and only that collection lists a
 * directory from the database: one tarvo_list batch per TAB or "?".
 */
#include <assert.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon.h"
#include "tarvocon_completion_clone/completion.h"

/* ---- Requests and responses ---- */

static char **completion_token_slots(void)
{
    return (char **)calloc(COMPLETION_MAX_TOKENS, sizeof(char *));
}

static void completion_free_slots(char **tokens, uint32_t capacity)
{
    if (tokens == nullptr)
        return;
    for (uint32_t i = 0; i < capacity; i++)
        free(tokens[i]);
    free(tokens);
}

int completion_request_init(char *line, completion_request_td *request,
                            completion_response_td *response, int mode)
{
    if (line == nullptr || request == nullptr || response == nullptr)
        return COMPLETION_ERR_INVALID;
    memset(request, 0, sizeof *request);
    memset(response, 0, sizeof *response);
    request->tokens = completion_token_slots();
    if (request->tokens == nullptr)
        return COMPLETION_ERR_NO_MEMORY;
    request->capacity = COMPLETION_MAX_TOKENS;
    tarvocon_remove_cr(line);
    /* The tokenizer refuses more than 32 tokens itself (SC_EXCESS), so the
     * request's slots always hold the whole line. */
    int code = tarvocon_tokenize(line, mode, request->tokens, &request->count);
    if (code == 0) {
        response->tokens = completion_token_slots();
        if (response->tokens == nullptr)
            code = COMPLETION_ERR_NO_MEMORY;
        response->capacity = COMPLETION_MAX_TOKENS;
    }
    if (code != 0) {
        completion_request_clean(request);
        memset(response, 0, sizeof *response);
    }
    return code;
}

void completion_request_clean(completion_request_td *request)
{
    assert(request != nullptr);
    completion_free_slots(request->tokens, request->capacity);
    memset(request, 0, sizeof *request);
}

void completion_response_clean(completion_response_td *response)
{
    assert(response != nullptr);
    completion_free_slots(response->tokens, response->capacity);
    response->tokens = nullptr;
    response->count = 0;
    completion_candidate_td *candidate = response->first;
    while (candidate != nullptr) {
        completion_candidate_td *next = candidate->next;
        free(candidate->text);
        free(candidate->display);
        free(candidate);
        candidate = next;
    }
    response->candidate_count = 0;
    response->first = nullptr;
    response->last = nullptr;
}

int completion_response_push(completion_response_td *response,
                             const char *text)
{
    assert(response->count < response->capacity);
    char *copy = strdup(text);
    if (copy == nullptr)
        return COMPLETION_ERR_NO_MEMORY;
    free(response->tokens[response->count]);
    response->tokens[response->count++] = copy;
    return 0;
}

/* ---- Candidates ---- */

int completion_add_candidate(completion_walk_td *walk, uint32_t exact,
                             const char *text, const char *display,
                             const char *help)
{
    if (walk->mode == COMPLETION_MODE_COUNT) {
        walk->count++;
        if (!walk->exact)
            walk->exact = exact;
        return 0;
    }
    completion_candidate_td *candidate =
        (completion_candidate_td *)calloc(1, sizeof *candidate);
    if (candidate == nullptr)
        return COMPLETION_ERR_NO_MEMORY;
    candidate->text = strdup(text);
    candidate->display = strdup(display);
    candidate->help = help;
    if (candidate->text == nullptr || candidate->display == nullptr) {
        free(candidate->text);
        free(candidate->display);
        free(candidate);
        return COMPLETION_ERR_NO_MEMORY;
    }
    completion_response_td *list = walk->list;
    if (list->last != nullptr)
        list->last->next = candidate;
    else
        list->first = candidate;
    list->last = candidate;
    list->candidate_count++;
    return 0;
}

const char *completion_datatype_label(int32_t datatype)
{
    static const char *const LABELS[] = {
        "[dir]",    "[external item]", "[external dir]", "[unknown]",
        "[uint32]", "[uint64]",        "[string]",       "[unknown]",
        "[packed]", "[unknown]",       "[bag]",          "[int8]",
        "[uint8]",  "[int16]",         "[uint16]",       "[int32]",
        "[int64]"};
    if (datatype < -3 || datatype > 13)
        return "[unknown]";
    return LABELS[datatype + 3];
}

/* ---- Path collection ---- */

/* The typed path split at its last '/': the directory part keeps the '/'. */
struct completion_path_td {
    char *directory;
    const char *leaf;
};

static int completion_split_path(const char *token, completion_path_td *path)
{
    path->directory = strdup(token);
    if (path->directory == nullptr)
        return COMPLETION_ERR_NO_MEMORY;
    char *slash = strrchr(path->directory, '/');
    size_t cut = slash != nullptr ? (size_t)(slash - path->directory) + 1 : 0;
    path->leaf = token + cut;
    path->directory[cut] = '\0';
    return 0;
}

/* Adds the names of the batch that begin with the leaf. */
static int completion_collect_entries(tarvo_list_h_td list, uint32_t remaining,
                                      const completion_path_td *path,
                                      completion_walk_td *walk,
                                      uint32_t *accepted)
{
    size_t leaf_length = strlen(path->leaf);
    size_t directory_length = strlen(path->directory);
    while (remaining > 0) {
        char *name = nullptr;
        tarvo_item_datatype_td datatype = (tarvo_item_datatype_td)0;
        int code = tarvo_list_next(list, &name, &datatype, nullptr);
        remaining--;
        if (code != 0)
            return code;
        if (name == nullptr)
            break;
        if (strncmp(name, path->leaf, leaf_length) != 0)
            continue;
        size_t name_length = strlen(name);
        char *text = (char *)malloc(directory_length + name_length + 1);
        if (text == nullptr)
            return COMPLETION_ERR_NO_MEMORY;
        snprintf(text, directory_length + name_length + 1, "%s%s",
                 path->directory, name);
        code = completion_add_candidate(walk, leaf_length == name_length, text,
                                        text,
                                        completion_datatype_label(datatype));
        free(text);
        if (code != 0)
            return code;
        (*accepted)++;
    }
    return 0;
}

/* Lists the typed directory (one batch) and adds the names that fit. A
 * failed listing adds nothing, not even the placeholder. */
static int completion_list_directory(const completion_path_td *path,
                                     completion_walk_td *walk,
                                     uint32_t *accepted, int *listed)
{
    char directory[TARVOCON_PATH_SIZE];
    snprintf(directory, sizeof directory, "%s", path->directory);
    size_t length = strlen(directory);
    if (length > 0 && directory[length - 1] != '/' &&
        length + 1 < sizeof directory)
        strcat(directory, "/");
    uint32_t remaining = 0xFFFFFFFFu;
    tarvo_list_h_td list = nullptr;
    int code = tarvo_list(tarvocon_bind_handle, directory, "", &remaining,
                          &list, 0);
    *listed = code == 0;
    if (code != 0)
        return code;
    code = completion_collect_entries(list, remaining, path, walk, accepted);
    tarvo_list_free(list);
    return code;
}

static int completion_collect_path(const completion_node_td *node,
                                   completion_walk_td *walk)
{
    if (walk->token == nullptr)
        return COMPLETION_ERR_INVALID;
    completion_path_td path;
    int code = completion_split_path(walk->token, &path);
    if (code != 0)
        return code;
    uint32_t accepted = 0;
    int listed = 1;
    if (walk->mode == COMPLETION_MODE_COLLECT)
        code = completion_list_directory(&path, walk, &accepted, &listed);
    if (walk->mode == COMPLETION_MODE_COUNT ||
        (listed && code == 0 && accepted == 0) ||
        (listed && code == COMPLETION_ERR_NO_MATCH))
        code = completion_add_candidate(walk, 1, walk->token, node->name,
                                        node->help);
    free(path.directory);
    return code;
}

/* ---- Counting and collecting ---- */

static int completion_is_prefix(const char *token, const char *keyword)
{
    return strncmp(token, keyword, strlen(token)) == 0;
}

static int completion_unknown_type(const completion_node_td *node)
{
    printf("unknow node type %d\n", (int)node->type);
    return 0;
}

int completion_collect_node(const completion_node_td *node,
                            completion_walk_td *walk)
{
    int code = 0;
    switch (node->type) {
    case COMPLETION_NODE_SEQUENCE:
        /* The next child is a candidate too while the one before it may be
         * left out. */
        for (uint32_t i = 0; i < node->child_count && code == 0; i++) {
            code = completion_collect_node(node->children[i], walk);
            if (!(node->children[i]->flags & COMPLETION_NODE_OPTIONAL))
                break;
        }
        return code;
    case COMPLETION_NODE_CHOICE:
    case COMPLETION_NODE_REPEAT:
        for (uint32_t i = 0; i < node->child_count && code == 0; i++)
            code = completion_collect_node(node->children[i], walk);
        return code;
    case COMPLETION_NODE_KEYWORD:
        if (!completion_is_prefix(walk->token, node->name))
            return 0;
        return completion_add_candidate(
            walk, strlen(node->name) == strlen(walk->token), node->name,
            node->name, node->help);
    case COMPLETION_NODE_WORD:
    case COMPLETION_NODE_NUMBER:
        return completion_add_candidate(walk, 1, walk->token, node->name,
                                        node->help);
    case COMPLETION_NODE_DIR_PATH:
    case COMPLETION_NODE_ITEM_PATH:
    case COMPLETION_NODE_PATH:
        return completion_collect_path(node, walk);
    default:
        return completion_unknown_type(node);
    }
}

static int completion_count(const completion_node_td *node, const char *token,
                            completion_walk_td *walk)
{
    *walk = {COMPLETION_MODE_COUNT, token, nullptr, 0, 0};
    return completion_collect_node(node, walk);
}

/* ---- Matching ---- */

int completion_match_sequence(const completion_node_td *node,
                              completion_request_td *request,
                              completion_response_td *response)
{
    for (uint32_t i = 0;
         i < node->child_count && response->count < request->count; i++) {
        int code = completion_match_node(node->children[i], request, response);
        if (code == COMPLETION_ERR_NO_MATCH &&
            (node->flags & COMPLETION_NODE_OPTIONAL))
            continue;
        if (code != 0)
            return code;
    }
    return 0;
}

/* An exact keyword wins over longer ones that begin with it: "get" takes
 * the get command although get_inh and getitems fit too. */
int completion_match_choice(const completion_node_td *node,
                            completion_request_td *request,
                            completion_response_td *response)
{
    const char *token = request->tokens[response->count];
    completion_walk_td whole;
    int code = completion_count(node, token, &whole);
    if (code != 0)
        return code;
    for (uint32_t i = 0;
         i < node->child_count && response->count < request->count; i++) {
        completion_walk_td child;
        code = completion_count(node->children[i], token, &child);
        if (code != 0)
            return code;
        int taken = whole.exact ? child.exact : child.count == 1;
        if (taken)
            return completion_match_node(node->children[i], request, response);
    }
    return 0;
}

static int completion_match_repeat(const completion_node_td *node,
                                   completion_request_td *request,
                                   completion_response_td *response)
{
    uint32_t before = response->count;
    int code = completion_match_choice(node, request, response);
    if (code != 0)
        return code;
    /* Only a round that took a token may be followed by another one. */
    if (response->count == before || response->count >= request->count)
        return 0;
    code = completion_match_node(node, request, response);
    return code == COMPLETION_ERR_NO_MATCH ? 0 : code;
}

/* When the current token is the last one and candidates are wanted, the
 * first node that has any collects them. */
static void completion_collect_last(const completion_node_td *node,
                                    completion_request_td *request,
                                    completion_response_td *response)
{
    if (!request->collect || response->count != request->count - 1)
        return;
    completion_walk_td walk = {COMPLETION_MODE_COLLECT,
                               request->tokens[response->count], response, 0,
                               0};
    (void)completion_collect_node(node, &walk);
    request->collect = 0;
}

int completion_match_node(const completion_node_td *node,
                          completion_request_td *request,
                          completion_response_td *response)
{
    if (node == nullptr || request == nullptr || response == nullptr ||
        request->count == 0)
        return COMPLETION_ERR_INVALID;
    if (response->count >= request->count)
        return COMPLETION_ERR_NO_MATCH;
    const char *token = request->tokens[response->count];
    completion_walk_td walk;
    int code = completion_count(node, token, &walk);
    if (code != 0)
        return code;
    if (walk.count != 0)
        completion_collect_last(node, request, response);
    if (walk.count != 1 && !walk.exact)
        return walk.count > 1 ? COMPLETION_ERR_AMBIGUOUS
                              : COMPLETION_ERR_NO_MATCH;
    switch (node->type) {
    case COMPLETION_NODE_SEQUENCE:
        return completion_match_sequence(node, request, response);
    case COMPLETION_NODE_CHOICE:
        return completion_match_choice(node, request, response);
    case COMPLETION_NODE_REPEAT:
        return completion_match_repeat(node, request, response);
    case COMPLETION_NODE_KEYWORD:
        if (!completion_is_prefix(token, node->name))
            return COMPLETION_ERR_NO_MATCH;
        return completion_response_push(response, node->name);
    case COMPLETION_NODE_WORD:
    case COMPLETION_NODE_NUMBER:
    case COMPLETION_NODE_DIR_PATH:
    case COMPLETION_NODE_ITEM_PATH:
    case COMPLETION_NODE_PATH:
        return completion_response_push(response, token);
    default:
        return completion_unknown_type(node);
    }
}

/* ---- TAB: completion ---- */

/* The longest beginning that every candidate's text shares. */
static int completion_common_part(const completion_response_td *response,
                                  char **common)
{
    if (response->first == nullptr)
        return COMPLETION_ERR_NO_MATCH;
    if (response->first->text == nullptr)
        return COMPLETION_ERR_INVALID;
    *common = strdup(response->first->text);
    if (*common == nullptr)
        return COMPLETION_ERR_NO_MEMORY;
    for (const completion_candidate_td *candidate = response->first->next;
         candidate != nullptr; candidate = candidate->next) {
        if (candidate->text == nullptr)
            return COMPLETION_ERR_INVALID;
        size_t i = 0;
        while ((*common)[i] != '\0' && (*common)[i] == candidate->text[i])
            i++;
        (*common)[i] = '\0';
    }
    return 0;
}

/* The typed tokens but the last, then the common part, left in an open
 * quote when it holds a blank so that typing can go on inside it. */
static int completion_build_line(completion_string_buffer_td *buffer,
                                 const completion_request_td *request,
                                 const char *common)
{
    int code = 0;
    if (request->count >= 2)
        code = completion_string_buffer_join(buffer, request->tokens,
                                             request->count - 1);
    if (code == 0 && request->count != 1)
        code = completion_string_buffer_append(buffer, " ", 0);
    if (code == 0)
        code = completion_string_buffer_append(buffer, common, 1);
    return code;
}

extern "C" int completion_complete_line(char *line, char **out)
{
    if (line == nullptr || out == nullptr)
        return COMPLETION_ERR_INVALID;
    completion_string_buffer_td buffer;
    int code = completion_string_buffer_init(&buffer);
    if (code != 0)
        return code;
    completion_request_td request;
    completion_response_td response;
    code = completion_request_init(line, &request, &response, 0);
    if (code != 0) {
        completion_string_buffer_clean(&buffer);
        return code;
    }
    request.collect = 1;
    code = completion_match_node(completion_grammar_root, &request, &response);
    if (code == COMPLETION_ERR_AMBIGUOUS)
        code = 0;
    char *common = nullptr;
    if (code == 0)
        code = completion_common_part(&response, &common);
    if (code == 0)
        code = completion_build_line(&buffer, &request, common);
    free(common);
    completion_request_clean(&request);
    completion_response_clean(&response);
    if (code == 0) {
        *out = buffer.data;
        return 0;
    }
    completion_string_buffer_clean(&buffer);
    if (code != COMPLETION_ERR_NO_MATCH)
        return code;
    *out = strdup(line);
    return *out != nullptr ? 0 : COMPLETION_ERR_NO_MEMORY;
}

/* ---- "?": context help ---- */

/* The word after a blank (or on an empty line) is the one to explain. */
static int completion_add_empty_token(const char *line,
                                      completion_request_td *request)
{
    size_t length = strlen(line);
    if (length != 0 && line[length - 1] != ' ' && request->count != 0)
        return 0;
    if (request->count >= request->capacity) {
        /* No room for the word to explain: refused as the tokenizer
         * refuses a line of more than 32 tokens. */
        vel_printmsg(tarvocon_msg_sc_excess(), VEL_SEVERITY_WARNING);
        return 1;
    }
    request->tokens[request->count] = strdup("");
    if (request->tokens[request->count] == nullptr)
        return COMPLETION_ERR_NO_MEMORY;
    request->count++;
    return 0;
}

static int completion_print_candidates(const completion_response_td *response)
{
    for (const completion_candidate_td *candidate = response->first;
         candidate != nullptr; candidate = candidate->next) {
        if (candidate->display == nullptr)
            return COMPLETION_ERR_INVALID;
        printf("  %-20s      %s\n", candidate->display,
               candidate->help != nullptr ? candidate->help : "");
    }
    return 0;
}

extern "C" int completion_print_help(char *line)
{
    if (line == nullptr)
        return COMPLETION_ERR_INVALID;
    completion_request_td request;
    completion_response_td response;
    int code = completion_request_init(line, &request, &response, 1);
    if (code != 0)
        return code;
    code = completion_add_empty_token(line, &request);
    if (code == 0) {
        request.collect = 1;
        code = completion_match_node(completion_grammar_root, &request,
                                     &response);
        if (response.candidate_count != 0)
            code = completion_print_candidates(&response);
    }
    completion_request_clean(&request);
    completion_response_clean(&response);
    return code;
}

/* ---- Enter: keyword expansion ---- */

static int completion_expanded_text(completion_string_buffer_td *buffer,
                                    const completion_request_td *request,
                                    const completion_response_td *response)
{
    if (response->count != request->count)
        return COMPLETION_ERR_NO_MATCH;
    return completion_string_buffer_join(buffer, response->tokens,
                                         response->count);
}

extern "C" int completion_expand_line(char *line, char **out)
{
    if (line == nullptr || out == nullptr)
        return COMPLETION_ERR_INVALID;
    completion_string_buffer_td buffer;
    int code = completion_string_buffer_init(&buffer);
    if (code != 0)
        return code;
    completion_request_td request;
    completion_response_td response;
    code = completion_request_init(line, &request, &response, 1);
    if (code != 0) {
        completion_string_buffer_clean(&buffer);
        return code;
    }
    code = completion_match_node(completion_grammar_root, &request, &response);
    if (code == 0)
        code = completion_expanded_text(&buffer, &request, &response);
    completion_request_clean(&request);
    completion_response_clean(&response);
    if (code == 0) {
        *out = buffer.data;
        return 0;
    }
    completion_string_buffer_clean(&buffer);
    if (code == COMPLETION_ERR_NO_MATCH || code == COMPLETION_ERR_AMBIGUOUS) {
        *out = strdup(line);
        if (*out == nullptr)
            return COMPLETION_ERR_NO_MEMORY;
    }
    return code;
}
