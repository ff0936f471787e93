/*
 * Tarvo item database client (libtarvo).
 *
 * A bind (_tarvo_bind) connects to the store of one plane at a bind point
 * with an options word; every other call takes the bind handle. Paths that
 * do not start with "/" are relative to the bind point. The stores live in
 * the data directory (TARVO_DATA_DIR, see docs/store.md) and may be shared by
 * several processes at once.
 *
 * Results: every function that returns int returns 0 on success or one of
 * the TARVO_ERR_ codes below (texts through errcode_strerror). After a
 * failed data-changing request, tarvo_prepare_error_string gives a detailed
 * text (which item, which rule, which lock holder) for that bind's last
 * failure.
 *
 * Ownership: values returned by tarvo_item_get and tarvo_item_get_inh are
 * heap memory the caller frees with free(). Lists are released with their
 * own free routine; the names and values a list hands out stay valid until
 * the list is freed, except in chunked lists, which keep only the current
 * chunk and the one before it: there an entry stays valid at least until the
 * following call of the list's _next routine. Prepared error texts are freed
 * by the caller with free().
 *
 * Batches: one list request delivers at most a bounded batch (about 1000
 * entries or 1 MiB of values; a store setting can lower it). When the batch
 * was cut short by that bound and entries remain, the more flag is set; when
 * the caller's wanted count was reached it is not. Chunked requests fetch
 * chunk by chunk while the caller reads with the _next routine.
 *
 * Thread and process safety: a bind handle is used from one thread at a
 * time; any number of processes may use the same data directory. No call
 * blocks on another process for longer than the store's busy timeout.
 */
#ifndef TARVO_PLATFORM_TARVO_H
#define TARVO_PLATFORM_TARVO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Datatypes ----
 * The one list of item datatypes: X(ID, code, name, width, is_signed) gives
 * the enumerator TARVO_DATATYPE_<ID>, its code, its name (the word typed for
 * it and the label shown for it), the byte width of an integer value (0 for
 * the others) and 1 for the signed integers. The codes above 0 are the
 * datatypes an item can be stored with; the others describe directories and
 * external entries and carry no value. Codes not listed are unknown.
 */
#define TARVO_DATATYPE_LIST(X)                  \
    X(DIR, -3, "dir", 0, 0)                     \
    X(EXTERNAL_ITEM, -2, "external item", 0, 0) \
    X(EXTERNAL_DIR, -1, "external dir", 0, 0)   \
    X(UINT32, 1, "uint32", 4, 0)                \
    X(UINT64, 2, "uint64", 8, 0)                \
    X(STRING, 3, "string", 0, 0)                \
    X(PACKED, 5, "packed", 0, 0)                \
    X(BAG, 7, "bag", 0, 0)                      \
    X(INT8, 8, "int8", 1, 1)                    \
    X(UINT8, 9, "uint8", 1, 0)                  \
    X(INT16, 10, "int16", 2, 1)                 \
    X(UINT16, 11, "uint16", 2, 0)               \
    X(INT32, 12, "int32", 4, 1)                 \
    X(INT64, 13, "int64", 8, 1)

#define TARVO_DATATYPE_ENUMERATOR(id, code, name, width, is_signed) \
    TARVO_DATATYPE_##id = code,
typedef enum tarvo_item_datatype_td
#ifdef __cplusplus
    : int32_t
#endif
{ TARVO_DATATYPE_LIST(TARVO_DATATYPE_ENUMERATOR) } tarvo_item_datatype_td;
#undef TARVO_DATATYPE_ENUMERATOR

/* ---- Events ---- */
typedef uint32_t tarvo_event_td;
#define TARVO_EVENT_CREATE 1u
#define TARVO_EVENT_SET 2u
#define TARVO_EVENT_DELETE 4u

/* ---- Bind options ---- */
#define TARVO_BIND_OPTION_MGMT 0x4u
#define TARVO_BIND_OPTION_SCRATCHPAD 0x80u
#define TARVO_BIND_OPTION_CFG 0x100u
#define TARVO_BIND_OPTION_EDM_DIRECT 0x200u
#define TARVO_BIND_OPTION_CONCISE 0x800u
#define TARVO_BIND_OPTION_NG_DIRECT 0x2000u
#define TARVO_BIND_OPTION_LOCAL_PLANE 0x10000u
#define TARVO_BIND_OPTION_SHARED_STATIC 0x20000u
#define TARVO_BIND_OPTION_SHARED_NONCFG 0x40000u
#define TARVO_BIND_OPTION_ADMIN_PLANE 0x80000u
#define TARVO_BIND_OPTION_SHARED_DATA 0x20000000u
#define TARVO_BIND_OPTION_BIT31 0x80000000u

/* ---- Access options (reads and lists) ---- */
#define TARVO_ACCESS_OPTION_REVERSE 0x2u
#define TARVO_ACCESS_OPTION_REGEXP 0x4u
#define TARVO_ACCESS_OPTION_NEXT 0x20u      /* start name is exclusive */
#define TARVO_ACCESS_OPTION_NOBULK 0x80u    /* committed data only */
#define TARVO_ACCESS_OPTION_BULK 0x100u     /* pending changes only */
#define TARVO_ACCESS_OPTION_COMP_REGEXP 0x200u
#define TARVO_ACCESS_OPTION_EXPAND 0x4000u
#define TARVO_ACCESS_OPTION_GET_ITEMS_SINGLE_NODE 0x800000u

/* ---- Item write options (delete, copy) ---- */
#define TARVO_WRITE_OPTION_REGEXP 0x4u
#define TARVO_WRITE_OPTION_ATOMIC 0x8u
#define TARVO_WRITE_OPTION_INITIAL_LOAD 0x40u
#define TARVO_WRITE_OPTION_COMP_REGEXP 0x200u
#define TARVO_WRITE_OPTION_OPTIMAL 0x1000000u

/* ---- Set options ---- */
#define TARVO_SET_OPTION_CREATE 0x1u

/* ---- Error codes ----
 * The one list of the client's codes: X(NAME, code, text) gives the constant
 * NAME (an int32_t value) and the text errcode_strerror returns for it.
 */
#define TARVO_ERROR_LIST(X)                                                   \
    X(TARVO_ERR_NOT_SUPPORTED, 0x0000005f, "operation not supported")         \
    X(TARVO_ERR_BAD_PATH, 0x40818000, "bad path")                             \
    X(TARVO_ERR_NOT_A_DIR, 0x40818400, "path is an item, not a directory")    \
    X(TARVO_ERR_NOT_FOUND, 0x40818600, "no such item or directory")           \
    X(TARVO_ERR_BAD_VALUE, 0x40818800, "bad value")                           \
    X(TARVO_ERR_AMBIGUOUS, 0x40818a00, "ambiguous")                           \
    X(TARVO_ERR_EXISTS, 0x40818c00, "item already exists")                    \
    X(TARVO_ERR_WRONG_DATATYPE, 0x40818e00,                                   \
      "item exists with another datatype")                                    \
    X(TARVO_ERR_IS_DIR, 0x40819000, "path is a directory")                    \
    X(TARVO_ERR_UNDER_ITEM, 0x40819200, "a parent of the path is an item")    \
    X(TARVO_ERR_BAD_DATATYPE, 0x40819400, "datatype cannot be stored")        \
    X(TARVO_ERR_BAD_HANDLE, 0x40819600, "bad bind handle")                    \
    X(TARVO_ERR_BULK_OPEN, 0x40819800, "bulk operation already open")         \
    X(TARVO_ERR_NO_BULK, 0x40819a00, "no bulk operation open")                \
    X(TARVO_ERR_TRANSACTION_OPEN, 0x40819c00, "transaction already open")     \
    X(TARVO_ERR_NO_TRANSACTION, 0x40819e00, "no transaction open")            \
    X(TARVO_ERR_LOCKED, 0x4081a000, "locked by another bind")                 \
    X(TARVO_ERR_NOT_LOCKED, 0x4081a200, "no lock held on path")               \
    X(TARVO_ERR_VERIFY_FAILED, 0x4081a400, "verification failed")             \
    X(TARVO_ERR_VALUE_DIFFERS, 0x4081a600, "stored value differs")            \
    X(TARVO_ERR_BAD_PATTERN, 0x4081a800, "bad regular expression")            \
    X(TARVO_ERR_BAD_ARGUMENT, 0x4081aa00, "bad argument")                     \
    X(TARVO_ERR_PATH_TOO_LONG, 0x4081ae00, "path too long")                   \
    X(TARVO_ERR_BAD_OPTIONS, 0x4081b000, "bad options")                       \
    X(TARVO_ERR_TRANS_AND_BULK, 0x4081b400,                                   \
      "transaction and bulk operation cannot be open together")               \
    X(TARVO_ERR_FILE_READ, 0x4081b600, "file cannot be read")                 \
    X(TARVO_ERR_FILE_WRITE, 0x4081b800, "file cannot be written")             \
    X(TARVO_ERR_BAD_FILE, 0x4081ba00, "damaged or foreign file")              \
    X(TARVO_ERR_UNSCANNED, 0x4081bc00,                                        \
      "written during an upgrade, not verified yet")                         \
    X(TARVO_ERR_NO_MEMORY, 0xc0818200, "no memory")                           \
    X(TARVO_ERR_STORE, 0x8081c000, "store failure")                           \
    X(TARVO_ERR_NO_LIBRARY, 0x8081c200, "client library not installed")       \
    X(TARVO_ERR_DATA_DIR, 0x8081c400, "data directory cannot be used")        \
    X(TARVO_ERR_STORE_CORRUPT, 0x8081c600, "store is damaged")                \
    X(TARVO_ERR_TRANSACTION_TIMED_OUT, 0x40826000, "transaction timed out")   \
    X(TARVO_ERR_BUSY, 0x40826400, "store busy, try again")                    \
    X(TARVO_ERR_NO_PERMISSION, 0x40828400, "permission denied")

/* Detail words of the file operations (saved trees, diffs): a small sub-code
 * handed back beside the main code, which errcode_strerror reads when it is
 * ORed into the main code's low byte. X(NAME, value, text). */
#define TARVO_FILE_DETAIL_LIST(X)                                             \
    X(TARVO_FILE_DETAIL_NO_NAME, 0x01, "no file name given")                  \
    X(TARVO_FILE_DETAIL_OPEN, 0x02, "the file cannot be opened")              \
    X(TARVO_FILE_DETAIL_IO, 0x03, "input/output error")                       \
    X(TARVO_FILE_DETAIL_MAGIC, 0x04, "not a file of the expected kind")       \
    X(TARVO_FILE_DETAIL_VERSION, 0x05, "unsupported layout version")          \
    X(TARVO_FILE_DETAIL_TRUNCATED, 0x06, "the file is truncated")             \
    X(TARVO_FILE_DETAIL_CHECKSUM, 0x07, "checksum does not match")            \
    X(TARVO_FILE_DETAIL_LENGTH, 0x08, "a length exceeds its bound")           \
    X(TARVO_FILE_DETAIL_RECORD, 0x09, "malformed record")                     \
    X(TARVO_FILE_DETAIL_TOO_LARGE, 0x0a, "the file is too large")

#define TARVO_FILE_DETAIL_ENUMERATOR(name, value, text) name = value,
enum { TARVO_FILE_DETAIL_LIST(TARVO_FILE_DETAIL_ENUMERATOR) };
#undef TARVO_FILE_DETAIL_ENUMERATOR

#define TARVO_ERROR_ENUMERATOR(name, code, text) name = (int32_t)code##u,
enum
#ifdef __cplusplus
    : int32_t
#endif
{ TARVO_ERROR_LIST(TARVO_ERROR_ENUMERATOR) };
#undef TARVO_ERROR_ENUMERATOR

/* ---- Handles ---- */
typedef struct tarvo_bind_td *tarvo_bind_h_td;
typedef struct tarvo_list_td *tarvo_list_h_td;
typedef struct tarvo_datalist_td *tarvo_datalist_h_td;

/* ---- Binding ---- */
int _tarvo_bind(tarvo_bind_h_td *handle, const char *path, uint32_t options);
int _tarvo_unbind(tarvo_bind_h_td handle);
/* The options word the handle was bound with. */
int tarvo_bind_get_options(tarvo_bind_h_td handle, uint32_t *options);
/* A heap text (free with free) describing the bind's last failure with
 * `code`; non-zero when there is nothing more to say than the code's text.
 * A null handle asks for the calling thread's last failed _tarvo_bind (the
 * store file and what is wrong with it). */
int tarvo_prepare_error_string(tarvo_bind_h_td handle, int32_t code,
                               char **text);

/* ---- Items ---- */
/* *datatype in: 0 for any type or the type wanted; out: the item's type.
 * A directory gives TARVO_DATATYPE_DIR with no value (*value null). */
int tarvo_item_get(tarvo_bind_h_td handle, const char *path,
                   tarvo_item_datatype_td *datatype, void **value,
                   uint32_t *length, uint32_t access_options);
/* Inheritance chain of an item; record layout in docs/store.md. */
int tarvo_item_get_inh(tarvo_bind_h_td handle, const char *path,
                       uint32_t *levels, void **buffer, uint32_t *length,
                       uint32_t options);
/* The `count` named items under `path` (or anywhere with
 * TARVO_ACCESS_OPTION_GET_ITEMS_SINGLE_NODE and an empty path) as one data
 * list, in the order named; names that do not exist are left out. */
int tarvo_get_items(tarvo_bind_h_td handle, char **names, const char *path,
                    uint32_t count, tarvo_datalist_h_td *list,
                    uint32_t flags);
int tarvo_item_create(tarvo_bind_h_td handle, const char *path,
                      tarvo_item_datatype_td datatype, const void *value,
                      uint32_t length, uint32_t options, uint32_t options2);
int tarvo_item_set(tarvo_bind_h_td handle, const char *path,
                   tarvo_item_datatype_td datatype, const void *value,
                   uint32_t length, uint32_t set_options);
/* An item, a directory (its whole subtree), the empty path (everything under
 * the bind point) or, with TARVO_WRITE_OPTION_REGEXP, every item whose path
 * under the bind point matches the pattern (with COMP_REGEXP: does not
 * match). ATOMIC: all or nothing. */
int tarvo_item_delete(tarvo_bind_h_td handle, const char *path,
                      uint32_t options);
int tarvo_item_conditional_delete(tarvo_bind_h_td handle, const char *path,
                                  tarvo_item_datatype_td datatype,
                                  const void *value, uint32_t length,
                                  uint32_t options);
int tarvo_item_verify(tarvo_bind_h_td handle, const char *path,
                      tarvo_item_datatype_td datatype, const void *value,
                      uint32_t length, uint32_t options);
/* Copies an item or a subtree; `match` (a path prefix, or an RE2 pattern with
 * the regexp options) filters the copied paths relative to `source`. */
int tarvo_copy(tarvo_bind_h_td handle, const char *source,
               const char *destination, const char *match, uint32_t options);

/* ---- Name lists ---- */
int tarvo_list(tarvo_bind_h_td handle, const char *path, const char *start,
               uint32_t *count, tarvo_list_h_td *list,
               uint32_t access_options);
int tarvo_chunk_list(tarvo_bind_h_td handle, const char *path,
                     const char *start, uint32_t chunk_size,
                     tarvo_list_h_td *list, uint32_t access_options);
/* *name null at the end of the list. `reserved` must be null. */
int tarvo_list_next(tarvo_list_h_td list, char **name,
                    tarvo_item_datatype_td *datatype, void *reserved);
int tarvo_list_last(tarvo_list_h_td list, char **name,
                    tarvo_item_datatype_td *datatype, void *reserved);
int tarvo_list_get_more_flag(tarvo_list_h_td list, int *more);
void tarvo_list_free(tarvo_list_h_td list);

/* ---- Data lists ---- */
int tarvo_datalist(tarvo_bind_h_td handle, const char *path,
                   const char *start, uint32_t *count,
                   tarvo_datalist_h_td *list, uint32_t access_options);
int tarvo_chunk_datalist(tarvo_bind_h_td handle, const char *path,
                         const char *start, uint32_t chunk_size,
                         tarvo_datalist_h_td *list, uint32_t access_options);
int tarvo_datalist_next(tarvo_datalist_h_td list, char **name,
                        tarvo_item_datatype_td *datatype, void **value,
                        uint32_t *length, void *reserved);
int tarvo_datalist_last(tarvo_datalist_h_td list, char **name,
                        tarvo_item_datatype_td *datatype, void **value,
                        uint32_t *length, void *reserved);
int tarvo_datalist_get_more_flag(tarvo_datalist_h_td list, int *more);
void tarvo_datalist_free(tarvo_datalist_h_td list);

/* ---- Finds ----
 * The items (and with TARVO_FIND_OPTION_DIRS the directories) below the
 * bind point whose path relative to the bind point matches `match`, as a
 * name list (tarvo_find) or a data list (tarvo_find_data) read with the list
 * routines above; entries carry whole paths, a directory's ending in "/".
 * A plain match string keeps the paths that begin with it (STRICT: the path
 * equal to it); TARVO_ACCESS_OPTION_REGEXP makes it an RE2 pattern that must
 * match the whole relative path (BAD_PATTERN when it does not compile), and
 * TARVO_ACCESS_OPTION_COMP_REGEXP keeps the paths it does not match.
 * NORECURSE keeps only the paths with no "/" past the end of a plain match
 * string. Batches, start names and the more flag work as for tarvo_list,
 * with whole paths as start names. The annotation, exclusion and
 * inheritance options are accepted; this store keeps no annotations or
 * exclusions (ONLY_ANNOT and ONLY_EXCLUDE find nothing) and no inheritance
 * between groups (AG, AH change nothing). */
#define TARVO_FIND_OPTION_DIRS 0x1u
#define TARVO_FIND_OPTION_NORECURSE 0x2u
#define TARVO_FIND_OPTION_AG 0x10u
#define TARVO_FIND_OPTION_AH 0x20u
#define TARVO_FIND_OPTION_SHOW_ANNOT 0x40u
#define TARVO_FIND_OPTION_SHOW_EXCLUDE 0x80u
#define TARVO_FIND_OPTION_ONLY_ANNOT 0x100u
#define TARVO_FIND_OPTION_ONLY_EXCLUDE 0x200u
#define TARVO_FIND_OPTION_SHOW_AZA_AYA 0x400u
#define TARVO_FIND_OPTION_STRICT 0x1000u
int tarvo_find(tarvo_bind_h_td handle, const char *match, const char *start,
               uint32_t *count, tarvo_list_h_td *list,
               uint32_t access_options, uint32_t find_options);
int tarvo_chunk_find(tarvo_bind_h_td handle, const char *match,
                     const char *start, uint32_t chunk_size,
                     tarvo_list_h_td *list, uint32_t access_options,
                     uint32_t find_options);
int tarvo_find_data(tarvo_bind_h_td handle, const char *match,
                    const char *start, uint32_t *count,
                    tarvo_datalist_h_td *list, uint32_t access_options,
                    uint32_t find_options);
int tarvo_chunk_find_data(tarvo_bind_h_td handle, const char *match,
                          const char *start, uint32_t chunk_size,
                          tarvo_datalist_h_td *list, uint32_t access_options,
                          uint32_t find_options);

/* ---- Iterators ----
 * An iterator walks the items and directories below a subtree (relative to
 * the bind point) in path order, chunk by chunk, so no subtree has to fit in
 * memory. A filter is data built from name globs (over the path relative to
 * the subtree, or over the last component when the glob holds no "/"; "*"
 * any run without "/", "**" any run, "?" one character other than "/") and
 * datatypes, joined with OR (0) or AND (1) or negated (2, no second filter).
 * A combination owns the filters it was made from; free with `recursive` 1
 * frees them too, with 0 only the combination itself. The store evaluates
 * the filter next to the data.
 * tarvo_iterator_next_data gives each entry's value (null for a directory):
 * with TARVO_ITERATOR_OPTION_DATALIST it comes with the chunk and belongs to
 * the iterator (valid until the following call); without it the value is
 * read item by item and is the caller's to free() with free. A null name
 * ends the walk. The store holds no EDM (external) entries, so
 * TARVO_ITERATOR_OPTION_EDM walks the same entries. */
typedef struct tarvo_iterator_filter_td *tarvo_iterator_filter_h_td;
typedef struct tarvo_iterator_td *tarvo_iterator_h_td;
#define TARVO_ITERATOR_FILTER_OR 0u
#define TARVO_ITERATOR_FILTER_AND 1u
#define TARVO_ITERATOR_FILTER_NOT 2u
#define TARVO_ITERATOR_OPTION_EDM 0x1u
#define TARVO_ITERATOR_OPTION_DATALIST 0x2u
int tarvo_iterator_filter_name(const char *pattern,
                               tarvo_iterator_filter_h_td *filter);
int tarvo_iterator_filter_datatype(tarvo_item_datatype_td datatype,
                                   tarvo_iterator_filter_h_td *filter);
int tarvo_iterator_filter_combine(tarvo_iterator_filter_h_td filter,
                                  tarvo_iterator_filter_h_td second,
                                  uint32_t operation,
                                  tarvo_iterator_filter_h_td *result);
void tarvo_iterator_filter_free(tarvo_iterator_filter_h_td filter,
                                uint32_t recursive);
int tarvo_iterator_create(tarvo_bind_h_td handle, const char *subtree,
                          tarvo_iterator_filter_h_td filter, uint32_t options,
                          tarvo_iterator_h_td *iterator);
int tarvo_iterator_next(tarvo_bind_h_td handle, tarvo_iterator_h_td iterator,
                        char **name, tarvo_item_datatype_td *datatype,
                        void *reserved);
int tarvo_iterator_next_data(tarvo_bind_h_td handle,
                             tarvo_iterator_h_td iterator, char **name,
                             tarvo_item_datatype_td *datatype, void *reserved,
                             void **value, uint32_t *length);
int tarvo_iterator_free(tarvo_bind_h_td handle, tarvo_iterator_h_td iterator);

/* ---- Event lists ----
 * tarvo_event_find gives the logged events of the items whose path matches
 * `match` (as for tarvo_find; the find options STRICT, ONLY_ANNOT and
 * ONLY_EXCLUDE apply), ordered by path and then sequence (both reversed with
 * TARVO_ACCESS_OPTION_REVERSE). A batch holds whole paths: it never splits
 * the events of one path, so it may hold more events than asked for when
 * one path has many, and the start name (a whole path) of the next batch
 * with TARVO_ACCESS_OPTION_NEXT skips the path given. The log keeps the last
 * `event_window` events of the plane (docs/store.md).
 * tarvo_find_precommit_changes_internal gives the events the bind's open
 * transaction or bulk would append, old values from the committed data, in
 * one complete list (more flag 0) of at most *count events (0: all): by path
 * and sequence, or with `debug_wp` 1 in the order the changes were made.
 * Nothing open gives an empty list.
 * An absent value is a null pointer with length 0. Names and values belong
 * to the list. */
typedef struct tarvo_event_list_td *tarvo_event_list_h_td;
int tarvo_event_find(tarvo_bind_h_td handle, const char *match,
                     const char *start, uint32_t *count,
                     tarvo_event_list_h_td *list, uint32_t access_options,
                     uint32_t find_options);
int tarvo_find_precommit_changes_internal(tarvo_bind_h_td handle,
                                          uint32_t *count,
                                          tarvo_event_list_h_td *list,
                                          uint32_t debug_wp);
int tarvo_event_list_get_more_flag(tarvo_event_list_h_td list, int *more);
/* The last event of the list; *value is its new value (the old one for a
 * delete). */
int tarvo_event_list_last(tarvo_event_list_h_td list, char **name,
                          tarvo_event_td *event,
                          tarvo_item_datatype_td *datatype, void **value,
                          uint32_t *length);
int tarvo_event_list_next_diff(tarvo_event_list_h_td list, char **name,
                               tarvo_event_td *event,
                               tarvo_item_datatype_td *datatype,
                               void **old_value, uint32_t *old_length,
                               void **new_value, uint32_t *new_length);
void tarvo_event_list_free(tarvo_event_list_h_td list);

/* ---- Error lists ----
 * The plane keeps three: the errors list (the refusals of the last bulk end
 * that was not atomic), the apply errors (refusals of in-service upgrade
 * ends, kept until cleared) and the unscanned list (items an ISSU bulk
 * wrote). A request gives at most *count entries (0 or 0xFFFFFFFF: all) and
 * sets *count to the number delivered; the entries' texts and values belong
 * to the list. An entry's operations word holds 0x1 create, 0x2 set,
 * 0x4 delete; the value of a delete is in delete_value. */
typedef struct tarvo_errors_list_td *tarvo_errors_list_h_td;
typedef struct tarvo_errors_list_entry_td {
    char *name; /* null at the end of the list */
    uint32_t operations;
    void *value;
    uint32_t value_length;
    void *delete_value;
    uint32_t delete_value_length;
    tarvo_item_datatype_td datatype;
    uint32_t error;
    char *verifier_string;       /* null when there is none */
    char *prepared_error_string; /* null when there is none */
} tarvo_errors_list_entry_td;
/* `apply_errors` 1 gives the apply errors instead of the errors list. */
int tarvo_errors_list(tarvo_bind_h_td handle, uint32_t apply_errors,
                      uint32_t *count, tarvo_errors_list_h_td *list);
int tarvo_apply_errors_list(tarvo_bind_h_td handle, uint32_t *count,
                            tarvo_errors_list_h_td *list);
int tarvo_unscanned_errors_list(tarvo_bind_h_td handle, uint32_t *count,
                                tarvo_errors_list_h_td *list);
int tarvo_errors_list_next(tarvo_errors_list_h_td list,
                           tarvo_errors_list_entry_td *entry);
void tarvo_errors_list_free(tarvo_errors_list_h_td list);
int tarvo_clear_apply_errors_list(tarvo_bind_h_td handle);
int tarvo_clear_unscanned_errors_list(tarvo_bind_h_td handle);

/* ---- Transactions ----
 * One transaction per bind, never together with a bulk (TRANS_AND_BULK).
 * The create, set, delete, conditional delete and copy requests of the bind
 * are then checked at once against the committed data merged with the
 * transaction's own changes, and buffered; the bind's reads see them (see
 * the access options BULK and NOBULK), other binds do not. The commit applies
 * them all in one store transaction, checking everything again (items,
 * verifier rules, locks of other binds): all of them or none. The timeout
 * (seconds and nanoseconds, both 0: none) counts from the start; a commit
 * after it applies nothing and returns TARVO_ERR_TRANSACTION_TIMED_OUT, and
 * requests made after it fail with that code. A start while a transaction is
 * open keeps its changes and counts the new timeout from now. Commit, timed
 * out or failed, and abort close the transaction. */
#define TARVO_TRANSACTION_OPTION_INITIAL_LOAD 0x2u /* commit appends no events */
int tarvo_transaction_start(tarvo_bind_h_td handle, uint64_t timeout_seconds,
                            uint64_t timeout_nanoseconds, uint32_t options);
int tarvo_transaction_commit(tarvo_bind_h_td handle);
int tarvo_transaction_abort(tarvo_bind_h_td handle);

/* ---- Bulk operations ----
 * One bulk per bind (TARVO_ERR_BULK_OPEN when one is open already). Between
 * start and end the bind's write requests are only collected, collapsed per
 * item (create then set is one create, create then delete is nothing); they
 * are checked when the bulk ends, in one store transaction. Reads of the
 * bind see the collected changes as the end would apply them. */
#define TARVO_BULK_OPTION_ATOMIC 0x1u        /* all or nothing */
#define TARVO_BULK_OPTION_INITIAL_LOAD 0x20u /* the end appends no events */
#define TARVO_BULK_OPTION_UPDATE 0x40u       /* create of an existing item sets it */
#define TARVO_BULK_OPTION_ISSU 0x200u        /* no verification; items left unscanned */
#define TARVO_BULK_OPTION_COMMIT_REPLACE 0x1000u /* delete what the bulk did not write */
#define TARVO_BULK_OPTION_INT_ROLLBACK 0x4000u   /* try all, undo all if one failed */
int tarvo_bulk_start(tarvo_bind_h_td handle, uint32_t options);
/* Applies the collected operations and closes the bulk, whatever the result.
 * Without ATOMIC (or INT_ROLLBACK) the operations that can be applied are,
 * and each refused one is recorded in the errors list; the result is then the
 * first refusal's code. */
int tarvo_bulk_end(tarvo_bind_h_td handle);
int tarvo_bulk_abort(tarvo_bind_h_td handle);
/* The options word of the open bulk; set replaces it (COMMIT_REPLACE is
 * meant to be added just before the end). NO_BULK when none is open. */
int tarvo_bulk_get_options(tarvo_bind_h_td handle, uint32_t *options);
int tarvo_bulk_set_options(tarvo_bind_h_td handle, uint32_t options);
/* Removes the collected operations on one item (`name` relative to the bind
 * point; the empty name: on every item). NOT_FOUND when there were none. */
#define TARVO_BULK_REMOVE_CREATES 0u /* creates and sets */
#define TARVO_BULK_REMOVE_DELETES 1u
#define TARVO_BULK_REMOVE_ALL 2u
int tarvo_bulk_remove_op2(tarvo_bind_h_td handle, const char *name,
                          uint32_t kind);
/* The number of operations collected (after collapsing). */
int tarvo_bulk_num_ops(tarvo_bind_h_td handle, uint32_t *count);

/* ---- Locks ----
 * A lock covers the subtree at `path` (the empty path: the bind point) and
 * belongs to the bind: many read locks or one write lock across binds of any
 * process. A conflicting lock request fails at once with TARVO_ERR_LOCKED,
 * and so does a write by another bind into a locked subtree; the prepared
 * error text names the holder. Locks end with unlock (NOT_LOCKED when the
 * bind holds none at that path), unbind, or the death of the holding
 * process. Plain reads are never blocked. */
int tarvo_item_rdlock(tarvo_bind_h_td handle, const char *path);
int tarvo_item_wrlock(tarvo_bind_h_td handle, const char *path);
int tarvo_item_unlock(tarvo_bind_h_td handle, const char *path);

/* ---- Verification ----
 * Suspends or resumes the verifier rules for this bind's writes only. */
int tarvo_verification_suspend(tarvo_bind_h_td handle);
int tarvo_verification_resume(tarvo_bind_h_td handle);

/* ---- Change notifications ----
 * Appends one event (kind, item, datatype, old and new value) to the plane's
 * event log at once, without changing any item and outside an open
 * transaction or bulk. A null value (with length 0) is absent. */
typedef struct tarvo_edm_notification_td {
    const char *item_name;
    uint32_t event;    /* TARVO_EVENT_CREATE, _SET or _DELETE */
    uint32_t datatype; /* tarvo_item_datatype_td code of the values */
    const void *old_value;
    uint32_t old_length;
    const void *new_value;
    uint32_t new_length;
} tarvo_edm_notification_td;
int tarvo_edm_notification_generate(tarvo_bind_h_td handle,
                                    const tarvo_edm_notification_td *request);

/* ---- Ping ----
 * Checks that the store of `plane` answers. BAD_ARGUMENT for a group, plane
 * or role word out of range; NOT_FOUND for a target id other than 0 (the
 * store has one server). */
#define TARVO_PING_GROUP_MEMBERSET 0u
#define TARVO_PING_GROUP_PHYSICAL 1u
#define TARVO_PING_GROUP_COMPLEMENT 2u
#define TARVO_PING_GROUP_OTHER 3u
#define TARVO_PING_PLANE_ADMIN 0u
#define TARVO_PING_PLANE_SHARED 1u
#define TARVO_PING_PLANE_LOCAL 2u
#define TARVO_PING_ROLE_ACTIVE 0x1u
#define TARVO_PING_ROLE_STANDBY 0x2u
#define TARVO_PING_ROLE_ALL 0x4u
#define TARVO_PING_ROLE_UNKNOWN 0x8u
int tarvo_ping(tarvo_bind_h_td handle, uint32_t group, uint32_t plane,
               uint32_t roles, uint32_t versioned, int32_t target_id);

/* ---- Configuration manager ----
 * End of an in-service upgrade: verifies every item an ISSU bulk left
 * unscanned, records each refusal in the apply errors and empties the
 * unscanned list. */
int tarvo_cfgmgr_issu_mdr_end(tarvo_bind_h_td handle);

/* ---- Saved trees and diffs (layouts in docs/files.md) ----
 * A saved tree (XNF) holds items with paths relative to the directory they
 * were saved from; a diff (XND) holds the changes a bulk end made (kind,
 * path, datatype, old and new value) with paths relative to a base
 * directory it records. Files are written to a temporary file in the
 * target's directory, flushed and renamed into place: a crash leaves the old
 * file or the new one. Every file is read and checked whole (magic, version,
 * lengths, checksums, every path and value) before anything is changed.
 *
 * The calls with a `detail` out-argument set it to 0, or to a
 * TARVO_FILE_DETAIL_ word that says what was wrong with the file; the main
 * code is TARVO_ERR_FILE_READ, _FILE_WRITE, _BAD_FILE or BAD_ARGUMENT (no
 * file name). errcode_strerror(code | detail) names both. */
#define TARVO_SAVE_OPTION_REGEXP 0x1u      /* match strings are RE2 patterns */
#define TARVO_SAVE_OPTION_NOBULK 0x20u     /* committed data only */
#define TARVO_SAVE_OPTION_BULK 0x40u       /* the pending changes only */
#define TARVO_SAVE_OPTION_COMP 0x80u       /* with REGEXP: items matching none */
#define TARVO_SAVE_OPTION_NODELETES 0x100u /* accepted; a tree holds no deletions */
#define TARVO_SAVE_OPTION_OLD_FORMAT 0x800u /* write layout version 1 */
/* Saves the items at and below `source` (an item or a directory; "" the bind
 * point) that match any of the `count` match strings ("" matches all):
 * plain strings are prefixes of the path relative to the source. */
int tarvo_file_save3(tarvo_bind_h_td handle, const char *source, char **match,
                     uint32_t count, uint32_t options, const char *file,
                     uint32_t *detail);

#define TARVO_RESTORE_OPTION_ATOMIC 0x2u       /* all or nothing */
#define TARVO_RESTORE_OPTION_UPDATE 0x8u       /* existing items are set */
#define TARVO_RESTORE_OPTION_INITIAL_LOAD 0x10u /* no events */
#define TARVO_RESTORE_OPTION_OLD_FORMAT 0x800u /* accepted; both layouts are read */
/* Creates the file's items below `destination` ("" the bind point), those
 * whose relative path the RE2 pattern `match` matches whole ("" all). In an
 * open bulk the items are collected into it; in a transaction the call is
 * refused (TRANSACTION_OPEN). */
int tarvo_file_restore3(tarvo_bind_h_td handle, const char *destination,
                        const char *match, uint32_t options, const char *file,
                        uint32_t *detail);

/* ---- Configuration manager: bulks and diffs ----
 * These calls work on the bind's open bulk (NO_BULK without one). */
#define TARVO_CFGMGR_DELETE_REMOVE_ONLY 0x8u
/* Each path is an RE2 pattern over the item paths relative to the bind
 * point: the matching items are deleted at the end of the bulk; with
 * REMOVE_ONLY, the collected operations on matching items are removed
 * instead (NOT_FOUND when there were none). */
int tarvo_cfgmgr_bulk_regexp_delete(tarvo_bind_h_td handle, char **paths,
                                    uint32_t count, uint32_t flags);
/* Deletes of items or subtrees (plain paths), collected into the bulk. */
int tarvo_cfgmgr_add_deletes(tarvo_bind_h_td handle, char **paths,
                             uint32_t count, uint32_t flags);
/* Removes every collected delete; NOT_FOUND when there was none. */
int tarvo_cfgmgr_remove_deletes(tarvo_bind_h_td handle, uint32_t flags);
/* Adds the changes of a diff to the bulk: below `destination` (resolved
 * against the bind point; "" the diff's own base), those whose relative
 * path begins with `filter` and matches the RE2 pattern `match` whole (""
 * each: all). `reverse` 1 adds the changes that undo them, in reverse order. */
int tarvo_cfgmgr_bulk_add_diffs2(tarvo_bind_h_td handle, const char *destination,
                                 const char *filter, const char *match,
                                 uint32_t reverse, const char *file,
                                 uint32_t *detail);

#define TARVO_CFGMGR_END_FORCELOWMEM 0x2u  /* accepted; no effect here */
#define TARVO_CFGMGR_END_ATOMIC 0x4u
#define TARVO_CFGMGR_END_COMMIT_REPLACE 0x40u
#define TARVO_CFGMGR_END_OPENCONFIG 0x8000u /* accepted; no effect here */
#define TARVO_CFGMGR_SAVED_CHANGES 0x1u  /* the diff (or restored tree) file */
#define TARVO_CFGMGR_SAVED_ROLLBACK 0x2u /* never: a store rolls back whole */
/* Ends the bulk as tarvo_bulk_end does (with the end's own options added)
 * and, when `file` is given and the end changed items, saves those changes
 * as a diff. The file's directory is tried first: when no file can be made
 * there the bulk stays open. *saved receives TARVO_CFGMGR_SAVED_ bits. */
int tarvo_cfgmgr_bulk_end2(tarvo_bind_h_td handle, const char *file,
                           uint32_t flags, uint32_t *detail, uint32_t *saved);

#define TARVO_CFGMGR_MERGE_REVERSE 0x1u
#define TARVO_CFGMGR_MERGE_DISABLE_OPTIM 0x800u
/* Reads the diffs in order, merges their changes per item (the first old
 * value and the last new one; DISABLE_OPTIM keeps every change) and adds
 * the result to the bulk as tarvo_cfgmgr_bulk_add_diffs2 does. `reserved`
 * must be null. */
int tarvo_cfgmgr_file_merge_diffs4(tarvo_bind_h_td handle, char **files,
                                   uint32_t count, const char *destination,
                                   const char *filter, const char *match,
                                   uint32_t flags, uint32_t *detail,
                                   void *reserved);
/* The changes of the diffs merged as tarvo_cfgmgr_file_merge_diffs4 merges
 * them (absolute paths below each diff's base; `reverse` 1: the changes
 * that undo them), as one complete event list. No bind is needed. */
int tarvo_cfgmgr_event_list_from_file(char **files, uint32_t count,
                                      uint32_t reverse,
                                      tarvo_event_list_h_td *list,
                                      uint32_t *detail);
/* Writes to `output` the saved tree `base` with the items of the saved tree
 * `delta` laid over it (added, or replacing those of the same relative
 * path). `flags` must be 0. */
int tarvo_cfgmgr_file_merge_delta(const char *base, const char *delta,
                                  const char *output, uint32_t flags,
                                  uint32_t *detail);
#define TARVO_CFGMGR_RESTORE_DELTA_ATOMIC 0x4u
/* Restores the merge of `base` and `delta` below the bind point, creating
 * or setting each item; saves the merged tree to `output` (when given)
 * after a successful restore. `reserved` must be 0. */
int tarvo_cfgmgr_file_restore_delta(tarvo_bind_h_td handle, const char *base,
                                    const char *delta, const char *output,
                                    uint32_t flags, uint32_t reserved,
                                    uint32_t *detail, uint32_t *saved);

#ifdef __cplusplus
}
#endif

#endif
