/*
 * The command grammar and the completion engine that walks it.
 *
 * The grammar (grammar.cpp) is constant data: a graph of nodes reached
 * through completion_grammar_root. Sequences, choices and repeated choices
 * hold children; keywords and placeholders (free word, number, paths) are
 * the leaves. Several parents share the path placeholders, the typed-value
 * and datatype choices and the option groups. Nothing changes the grammar.
 *
 * The engine (engine.cpp, strbuf.cpp) serves the line reader: TAB
 * (completion_complete_line), "?" (completion_print_help) and Enter
 * (completion_expand_line), declared in tarvocon.h. Each call builds its own
 * request, response, candidate list and string buffer and frees them before
 * it returns; only the text handed back belongs to the caller. At a path
 * position the engine lists the typed directory once through the console's
 * bind (tarvo_list, one batch). Results are 0 or one of the COMPLETION_ERR_
 * codes below; a tokenizer refusal is passed on as the tokenizer's 1 after
 * its own message. Single-threaded, like the console.
 *
 * The declarations below are the engine's inner steps; the console itself
 * only calls the three entry operations. Tests walk the grammar with them.
 */
#ifndef TARVOCON_COMPLETION_H
#define TARVOCON_COMPLETION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Grammar ---- */

#define COMPLETION_NODE_SEQUENCE 0  /* its children in order */
#define COMPLETION_NODE_CHOICE 1    /* exactly one child */
#define COMPLETION_NODE_REPEAT 2    /* one child, then itself again */
#define COMPLETION_NODE_KEYWORD 3   /* a prefix of the keyword */
#define COMPLETION_NODE_WORD 4      /* any token */
#define COMPLETION_NODE_NUMBER 5    /* any token */
#define COMPLETION_NODE_DIR_PATH 6  /* any token; names from the database */
#define COMPLETION_NODE_ITEM_PATH 7 /* as a directory path */
#define COMPLETION_NODE_PATH 8      /* as a directory path */

#define COMPLETION_NODE_OPTIONAL 0x1u

typedef struct completion_node_td {
    uint32_t type;
    const char *name; /* keyword, or placeholder display name; else null */
    const char *help; /* null for the unnamed inner sequences */
    uint32_t child_count;
    const struct completion_node_td *const *children;
    uint32_t flags;
} completion_node_td;

extern const completion_node_td *const completion_grammar_root;

/* ---- Engine records ---- */

#define COMPLETION_ERR_NO_MATCH ((int)0x40818600u)
#define COMPLETION_ERR_INVALID ((int)0x40818800u)
#define COMPLETION_ERR_AMBIGUOUS ((int)0x40818a00u)
#define COMPLETION_ERR_NO_MEMORY ((int)0xc0818200u)

#define COMPLETION_MAX_TOKENS 32

#define COMPLETION_MODE_COUNT 1
#define COMPLETION_MODE_COLLECT 2

/* The tokens as typed; each an allocated copy owned by the request. */
typedef struct completion_request_td {
    char **tokens;
    uint32_t capacity;
    uint32_t count;
    uint32_t collect; /* 1: build the candidate list for the last token */
} completion_request_td;

typedef struct completion_candidate_td {
    char *text;       /* allocated: what completion inserts */
    char *display;    /* allocated: what "?" shows */
    const char *help; /* constant: grammar help or datatype label */
    struct completion_candidate_td *next;
} completion_candidate_td;

/* What the walk matched: keywords in full, placeholders as typed. count is
 * also the index of the next typed token to match. */
typedef struct completion_response_td {
    char **tokens;
    uint32_t capacity;
    uint32_t count;
    uint32_t candidate_count;
    completion_candidate_td *first;
    completion_candidate_td *last;
} completion_response_td;

typedef struct completion_string_buffer_td {
    char *data;
    uint32_t length;
    uint32_t size;
} completion_string_buffer_td;

/* One count or collection over a node, for one token. */
typedef struct completion_walk_td {
    uint32_t mode;
    const char *token;
    completion_response_td *list; /* collect mode: where candidates go */
    uint32_t count;
    uint32_t exact;
} completion_walk_td;

/* ---- Engine steps ---- */

/* Cuts line at its first newline and tokenises it (mode 0 keeps unfinished
 * input, 1 is strict). On failure nothing is left allocated. */
int completion_request_init(char *line, completion_request_td *request,
                            completion_response_td *response, int mode);
void completion_request_clean(completion_request_td *request);
void completion_response_clean(completion_response_td *response);

int completion_match_node(const completion_node_td *node,
                          completion_request_td *request,
                          completion_response_td *response);
int completion_match_sequence(const completion_node_td *node,
                              completion_request_td *request,
                              completion_response_td *response);
int completion_match_choice(const completion_node_td *node,
                            completion_request_td *request,
                            completion_response_td *response);
int completion_collect_node(const completion_node_td *node,
                            completion_walk_td *walk);
int completion_add_candidate(completion_walk_td *walk, uint32_t exact,
                             const char *text, const char *display,
                             const char *help);
int completion_response_push(completion_response_td *response,
                             const char *text);

/* The label "?" shows beside a path candidate of this datatype. */
const char *completion_datatype_label(int32_t datatype);

/* ---- String buffer (strbuf.cpp) ---- */

int completion_string_buffer_init(completion_string_buffer_td *buffer);
/* Appends text; a text of two or more characters holding a blank is put in
 * double quotes, without the closing one when open_quote is set. */
int completion_string_buffer_append(completion_string_buffer_td *buffer,
                                    const char *text, int open_quote);
/* Appends the first n tokens, one blank apart; an empty token as "". */
int completion_string_buffer_join(completion_string_buffer_td *buffer,
                                  char *const *tokens, uint32_t n);
void completion_string_buffer_clean(completion_string_buffer_td *buffer);

#ifdef __cplusplus
}
#endif

#endif
