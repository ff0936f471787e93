/*
 * The command grammar: the console's commands, their options and argument
 * kinds as TAB, "?" and keyword expansion see them. Constant data, built
 * at compile time; the root's alternatives are in the order "?" lists them.
 *
 * Nodes are defined before the nodes that hold them. Shared nodes (the path
 * and number placeholders, the typed value, the datatype choice of get,
 * get_inh, match and dump, and the option groups of listing, find, bind/cd
 * and merging) are one node each, referenced wherever they are used.
 * A keyword node is shared wherever the same word carries the same help.
 *
 * Words of the command table that are not here (q, edmnotify and five
 * cfgmgr_ commands) run all the same: a line the grammar does not match
 * runs as typed.
 */
#include <stddef.h>

#include "tarvocon_completion_clone/completion.h"

namespace {

constexpr uint32_t OPTIONAL = COMPLETION_NODE_OPTIONAL;

constexpr completion_node_td keyword(const char *word, const char *help)
{
    return {COMPLETION_NODE_KEYWORD, word, help, 0, nullptr, 0};
}

constexpr completion_node_td placeholder(uint32_t type, const char *name,
                                         const char *help)
{
    return {type, name, help, 0, nullptr, 0};
}

template <size_t N>
constexpr completion_node_td
group(uint32_t type, const char *help,
      const completion_node_td *const (&children)[N], uint32_t flags = 0)
{
    return {type, nullptr, help, N, children, flags};
}

template <size_t N>
constexpr completion_node_td
sequence(const char *help, const completion_node_td *const (&children)[N])
{
    return group(COMPLETION_NODE_SEQUENCE, help, children);
}

/* A keyword with its argument: an unnamed sequence without help. */
template <size_t N>
constexpr completion_node_td
with_argument(const completion_node_td *const (&children)[N])
{
    return group(COMPLETION_NODE_SEQUENCE, nullptr, children);
}

/* ---- Placeholders ---- */

const completion_node_td ITEM_PATH =
    placeholder(COMPLETION_NODE_ITEM_PATH, "WORD", "path of Tarvo item");
const completion_node_td ITEM_NAME =
    placeholder(COMPLETION_NODE_ITEM_PATH, "WORD", "Tarvo item name");
const completion_node_td DIR_PATH =
    placeholder(COMPLETION_NODE_DIR_PATH, "WORD", "path of Tarvo directory");
const completion_node_td ANY_PATH = placeholder(
    COMPLETION_NODE_PATH, "WORD", "path of Tarvo directory or item");
const completion_node_td NUMBER =
    placeholder(COMPLETION_NODE_NUMBER, "NUMBER", "arbitrary number");
const completion_node_td SECONDS =
    placeholder(COMPLETION_NODE_NUMBER, "NUMBER", "number of seconds");
const completion_node_td STRING =
    placeholder(COMPLETION_NODE_WORD, "WORD", "arbitrary string");
const completion_node_td FILE_TO_READ =
    placeholder(COMPLETION_NODE_WORD, "WORD", "name of the file to read");
const completion_node_td FILE_TO_CREATE =
    placeholder(COMPLETION_NODE_WORD, "WORD", "name of the file to create");

/* ---- Datatypes and typed values ---- */

const completion_node_td INT8 = keyword("int8", "signed 8 bits integer");
const completion_node_td INT16 = keyword("int16", "signed 16 bits integer");
const completion_node_td INT32 = keyword("int32", "signed 32 bits integer");
const completion_node_td INT64 = keyword("int64", "signed 64 bits integer");
const completion_node_td UINT8 = keyword("uint8", "unsigned 8 bits integer");
const completion_node_td UINT16 =
    keyword("uint16", "unsigned 16 bits integer");
const completion_node_td UINT32 =
    keyword("uint32", "unsigned 32 bits integer");
const completion_node_td UINT64 =
    keyword("uint64", "unsigned 64 bits integer");
const completion_node_td STRING_TYPE =
    keyword("string", "null terminated string");
const completion_node_td PACKED = keyword("packed", "packed item");
const completion_node_td BAG = keyword("bag", "bag");

const completion_node_td *const INT8_VALUE_PARTS[] = {&INT8, &NUMBER};
const completion_node_td *const INT16_VALUE_PARTS[] = {&INT16, &NUMBER};
const completion_node_td *const INT32_VALUE_PARTS[] = {&INT32, &NUMBER};
const completion_node_td *const INT64_VALUE_PARTS[] = {&INT64, &NUMBER};
const completion_node_td *const UINT8_VALUE_PARTS[] = {&UINT8, &NUMBER};
const completion_node_td *const UINT16_VALUE_PARTS[] = {&UINT16, &NUMBER};
const completion_node_td *const UINT32_VALUE_PARTS[] = {&UINT32, &NUMBER};
const completion_node_td *const UINT64_VALUE_PARTS[] = {&UINT64, &NUMBER};
const completion_node_td *const STRING_VALUE_PARTS[] = {&STRING_TYPE,
                                                        &STRING};
const completion_node_td *const PACKED_VALUE_PARTS[] = {&PACKED, &STRING};
const completion_node_td *const BAG_VALUE_PARTS[] = {&BAG, &STRING};
const completion_node_td INT8_VALUE = with_argument(INT8_VALUE_PARTS);
const completion_node_td INT16_VALUE = with_argument(INT16_VALUE_PARTS);
const completion_node_td INT32_VALUE = with_argument(INT32_VALUE_PARTS);
const completion_node_td INT64_VALUE = with_argument(INT64_VALUE_PARTS);
const completion_node_td UINT8_VALUE = with_argument(UINT8_VALUE_PARTS);
const completion_node_td UINT16_VALUE = with_argument(UINT16_VALUE_PARTS);
const completion_node_td UINT32_VALUE = with_argument(UINT32_VALUE_PARTS);
const completion_node_td UINT64_VALUE = with_argument(UINT64_VALUE_PARTS);
const completion_node_td STRING_VALUE = with_argument(STRING_VALUE_PARTS);
const completion_node_td PACKED_VALUE = with_argument(PACKED_VALUE_PARTS);
const completion_node_td BAG_VALUE = with_argument(BAG_VALUE_PARTS);

const completion_node_td *const TYPED_VALUE_CHOICES[] = {
    &INT8_VALUE,   &INT16_VALUE,  &INT32_VALUE,  &INT64_VALUE,
    &UINT8_VALUE,  &UINT16_VALUE, &UINT32_VALUE, &UINT64_VALUE,
    &STRING_VALUE, &PACKED_VALUE, &BAG_VALUE};
const completion_node_td TYPED_VALUE =
    group(COMPLETION_NODE_CHOICE, "", TYPED_VALUE_CHOICES);

const completion_node_td *const DATATYPE_CHOICES[] = {
    &INT8,   &INT16,  &INT32,       &INT64,  &UINT8, &UINT16,
    &UINT32, &UINT64, &STRING_TYPE, &PACKED, &BAG};
/* Optional after the item path of get, get_inh, match and dump. */
const completion_node_td DATATYPE = group(
    COMPLETION_NODE_CHOICE, "datatype of specified item", DATATYPE_CHOICES,
    OPTIONAL);
/* The argument of iterate's -datatype: required there. */
const completion_node_td ITERATE_DATATYPE = group(
    COMPLETION_NODE_CHOICE, "datatype of specified item", DATATYPE_CHOICES);

/* ---- Option words shared by several commands ---- */

const completion_node_td REVERSE = keyword("-reverse", "list in reverse order");
const completion_node_td START = keyword("-start", "specify a start point");
const completion_node_td NUM = keyword("-num", "specify a maximum list size");
const completion_node_td CHUNK = keyword("-chunk", "specify a list chunk size");
const completion_node_td NEXT =
    keyword("-next", "retrieve the next item in list");
const completion_node_td BULK =
    keyword("-bulk", "only include items from bulk buffer");
const completion_node_td NOBULK =
    keyword("-nobulk", "do not include items from bulk buffer");
const completion_node_td REGEXP = keyword("-regexp", "use regular expressions");
const completion_node_td COMP_REGEXP = keyword(
    "-comp_regexp", "use complementary regular expression matching");
const completion_node_td ATOMIC = keyword("-atomic", "perform atomically");
const completion_node_td APPLY_LEVELS =
    keyword("-apply_levels", "use apply levels");
const completion_node_td INITIAL_LOAD =
    keyword("-initial_load", "simulate initial load of config");
const completion_node_td UPDATE =
    keyword("-update", "update items if they exist");
const completion_node_td OLD_FORMAT =
    keyword("-old_format", "use the old file format");
const completion_node_td MATCH_OPTION =
    keyword("-match", "specify a regular expression");
const completion_node_td DEST =
    keyword("-dest", "specify a destination path");
const completion_node_td FILTER =
    keyword("-filter", "specify a filter string");
const completion_node_td REVERSE_DIFFS =
    keyword("-reverse_diffs", "use the reverse diffs");

const completion_node_td *const START_PARTS[] = {&START, &ITEM_PATH};
const completion_node_td *const NUM_PARTS[] = {&NUM, &NUMBER};
const completion_node_td *const CHUNK_PARTS[] = {&CHUNK, &NUMBER};
const completion_node_td *const MATCH_PARTS[] = {&MATCH_OPTION, &STRING};
const completion_node_td *const DEST_PARTS[] = {&DEST, &ANY_PATH};
const completion_node_td *const FILTER_PARTS[] = {&FILTER, &STRING};
const completion_node_td START_ARGUMENT = with_argument(START_PARTS);
const completion_node_td NUM_ARGUMENT = with_argument(NUM_PARTS);
const completion_node_td CHUNK_ARGUMENT = with_argument(CHUNK_PARTS);
const completion_node_td MATCH_ARGUMENT = with_argument(MATCH_PARTS);
const completion_node_td DEST_ARGUMENT = with_argument(DEST_PARTS);
const completion_node_td FILTER_ARGUMENT = with_argument(FILTER_PARTS);

/* ---- Shared option groups ---- */

const completion_node_td EXPAND =
    keyword("-expand", "Only for concise binds. Expand database");
const completion_node_td *const LIST_OPTION_CHOICES[] = {
    &REVERSE, &START_ARGUMENT, &NUM_ARGUMENT, &CHUNK_ARGUMENT,
    &NEXT,    &EXPAND,         &BULK,         &NOBULK};
const completion_node_td LIST_OPTIONS = group(
    COMPLETION_NODE_REPEAT, "list options", LIST_OPTION_CHOICES, OPTIONAL);

const completion_node_td DIRS = keyword("-dirs", "find directories");
const completion_node_td NORECURSE =
    keyword("-norecurse", "do not recurse beyond end of match string");
const completion_node_td *const FIND_OPTION_CHOICES[] = {
    &REVERSE, &START_ARGUMENT, &NUM_ARGUMENT, &CHUNK_ARGUMENT,
    &NEXT,    &DIRS,           &NORECURSE,    &REGEXP,
    &COMP_REGEXP, &BULK,       &NOBULK};
const completion_node_td FIND_OPTIONS = group(
    COMPLETION_NODE_REPEAT, "find options", FIND_OPTION_CHOICES, OPTIONAL);

const completion_node_td BIND_DEFAULT = keyword("-d", "use a default bind");
const completion_node_td BIND_MGMT = keyword("-m", "use a management bind");
const completion_node_td BIND_LOCAL =
    keyword("-l", "enforce a local local-plane bind");
const completion_node_td BIND_SHARED =
    keyword("-s", "enforce a local shared-plane bind");
const completion_node_td BIND_ADMIN =
    keyword("-a", "enforce a local admin-plane bind");
const completion_node_td BIND_NUMERIC =
    keyword("-o", "specify numeric bind options");
const completion_node_td *const BIND_NUMERIC_PARTS[] = {&BIND_NUMERIC,
                                                        &NUMBER};
const completion_node_td BIND_NUMERIC_ARGUMENT =
    with_argument(BIND_NUMERIC_PARTS);
const completion_node_td *const BIND_OPTION_CHOICES[] = {
    &BIND_DEFAULT, &BIND_MGMT,  &BIND_LOCAL,
    &BIND_SHARED,  &BIND_ADMIN, &BIND_NUMERIC_ARGUMENT};
const completion_node_td BIND_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "bind or cd options", BIND_OPTION_CHOICES,
          OPTIONAL);

const completion_node_td *const MERGE_OPTION_CHOICES[] = {
    &FILE_TO_READ, &FILTER_ARGUMENT, &MATCH_ARGUMENT, &REVERSE_DIFFS};
const completion_node_td MERGE_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "cfgmgr_merge_diffs options",
          MERGE_OPTION_CHOICES, OPTIONAL);

/* ---- Commands, in the order of the root's alternatives ---- */

const completion_node_td CREATE_WORD = keyword("create", "create item");
const completion_node_td *const CREATE_PARTS[] = {&CREATE_WORD, &ITEM_PATH,
                                                  &TYPED_VALUE};
const completion_node_td CREATE = sequence("create item command", CREATE_PARTS);

const completion_node_td SET_WORD = keyword("set", "set value of item");
const completion_node_td SET_CREATE =
    keyword("-create", "create item if it doesn't exist");
const completion_node_td *const SET_OPTION_CHOICES[] = {&SET_CREATE};
const completion_node_td SET_OPTIONS = group(
    COMPLETION_NODE_REPEAT, "set options", SET_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const SET_PARTS[] = {&SET_WORD, &ITEM_PATH,
                                               &TYPED_VALUE, &SET_OPTIONS};
const completion_node_td SET = sequence("set item command", SET_PARTS);

const completion_node_td DELETE_WORD =
    keyword("delete", "delete item/directory");
const completion_node_td *const DELETE_OPTION_CHOICES[] = {
    &REGEXP, &COMP_REGEXP, &ATOMIC, &APPLY_LEVELS, &INITIAL_LOAD};
const completion_node_td DELETE_OPTIONS = group(
    COMPLETION_NODE_REPEAT, "delete options", DELETE_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const DELETE_PARTS[] = {&DELETE_WORD, &ANY_PATH,
                                                  &DELETE_OPTIONS};
const completion_node_td DELETE = sequence("delete item command", DELETE_PARTS);

const completion_node_td DELETE_COND_WORD =
    keyword("delete_cond", "conditionally delete item");
const completion_node_td *const DELETE_COND_PARTS[] = {
    &DELETE_COND_WORD, &ITEM_PATH, &TYPED_VALUE};
const completion_node_td DELETE_COND =
    sequence("delete conditionally item command", DELETE_COND_PARTS);

const completion_node_td RDLOCK_WORD =
    keyword("rdlock", "read lock item/directory");
const completion_node_td *const RDLOCK_PARTS[] = {&RDLOCK_WORD, &ANY_PATH};
const completion_node_td RDLOCK = sequence("rdlock command", RDLOCK_PARTS);

const completion_node_td WRLOCK_WORD =
    keyword("wrlock", "write lock item/directory");
const completion_node_td *const WRLOCK_PARTS[] = {&WRLOCK_WORD, &ANY_PATH};
const completion_node_td WRLOCK = sequence("wrlock command", WRLOCK_PARTS);

const completion_node_td UNLOCK_WORD =
    keyword("unlock", "unlock item/directory");
const completion_node_td *const UNLOCK_PARTS[] = {&UNLOCK_WORD, &ANY_PATH};
const completion_node_td UNLOCK = sequence("unlock command", UNLOCK_PARTS);

/* The seconds number follows -initial_load, so it is not offered among
 * the options themselves. */
const completion_node_td STARTTRANS_WORD =
    keyword("starttrans", "start transaction");
const completion_node_td STARTTRANS_BUFFERED =
    keyword("-b", "buffer trans opertions until commit");
const completion_node_td *const STARTTRANS_INITIAL_LOAD_PARTS[] = {
    &INITIAL_LOAD, &SECONDS};
const completion_node_td STARTTRANS_INITIAL_LOAD =
    with_argument(STARTTRANS_INITIAL_LOAD_PARTS);
const completion_node_td *const STARTTRANS_OPTION_CHOICES[] = {
    &STARTTRANS_BUFFERED, &APPLY_LEVELS, &STARTTRANS_INITIAL_LOAD};
const completion_node_td STARTTRANS_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "starttrans options",
          STARTTRANS_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const STARTTRANS_PARTS[] = {&STARTTRANS_WORD,
                                                      &STARTTRANS_OPTIONS};
const completion_node_td STARTTRANS =
    sequence("starttrans command", STARTTRANS_PARTS);

const completion_node_td COMMITTRANS =
    keyword("committrans", "commit transaction");
const completion_node_td ABORTTRANS =
    keyword("aborttrans", "abort transaction");

const completion_node_td STARTBULK_WORD =
    keyword("startbulk", "start bulk operation");
const completion_node_td *const STARTBULK_OPTION_CHOICES[] = {
    &ATOMIC, &APPLY_LEVELS, &UPDATE, &INITIAL_LOAD};
const completion_node_td STARTBULK_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "startbulk options",
          STARTBULK_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const STARTBULK_PARTS[] = {&STARTBULK_WORD,
                                                     &STARTBULK_OPTIONS};
const completion_node_td STARTBULK =
    sequence("startbulk command", STARTBULK_PARTS);

const completion_node_td ENDBULK = keyword("endbulk", "end bulk operation");
const completion_node_td ABORTBULK =
    keyword("abortbulk", "abort bulk operation");

const completion_node_td REMOVE_BULK_OP_WORD =
    keyword("remove_bulk_op", "remove an operation from the bulk");
const completion_node_td REMOVE_CREATES =
    keyword("-creates", "remove only create events");
const completion_node_td REMOVE_DELETES =
    keyword("-deletes", "remove only delete events");
const completion_node_td *const REMOVE_BULK_OP_OPTION_CHOICES[] = {
    &REMOVE_CREATES, &REMOVE_DELETES};
const completion_node_td REMOVE_BULK_OP_OPTIONS =
    group(COMPLETION_NODE_CHOICE, "remove_bulk_op options",
          REMOVE_BULK_OP_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const REMOVE_BULK_OP_PARTS[] = {
    &REMOVE_BULK_OP_WORD, &ANY_PATH, &REMOVE_BULK_OP_OPTIONS};
const completion_node_td REMOVE_BULK_OP =
    sequence("remove bulk operation command", REMOVE_BULK_OP_PARTS);

const completion_node_td BULK_NUM_OPS = keyword(
    "bulk_num_ops", "get the number of operations in tbe bulk");
const completion_node_td SUSPENDVRFN =
    keyword("suspendvrfn", "suspend verification");
const completion_node_td RESUMEVRFN =
    keyword("resumevrfn", "resume verification");

const completion_node_td FILERESTORE_WORD =
    keyword("filerestore", "restore item(s) from an XNF file");
const completion_node_td *const FILERESTORE_OPTION_CHOICES[] = {
    &DEST_ARGUMENT, &MATCH_ARGUMENT, &ATOMIC,    &APPLY_LEVELS,
    &INITIAL_LOAD,  &UPDATE,         &OLD_FORMAT};
const completion_node_td FILERESTORE_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "filerestore options",
          FILERESTORE_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const FILERESTORE_PARTS[] = {
    &FILERESTORE_WORD, &FILE_TO_READ, &FILERESTORE_OPTIONS};
const completion_node_td FILERESTORE =
    sequence("filerestore command", FILERESTORE_PARTS);

const completion_node_td CFGMGR_DELETE_WORD =
    keyword("cfgmgr_delete", "delete regular expression area in bulk");
const completion_node_td REMOVE_ONLY = keyword(
    "-remove_only", "only remove matching operations from the bulk");
const completion_node_td *const CFGMGR_DELETE_OPTION_CHOICES[] = {
    &REMOVE_ONLY};
const completion_node_td CFGMGR_DELETE_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "cfgmgr_delete options",
          CFGMGR_DELETE_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const CFGMGR_DELETE_PARTS[] = {
    &CFGMGR_DELETE_WORD, &ANY_PATH, &CFGMGR_DELETE_OPTIONS};
const completion_node_td CFGMGR_DELETE =
    sequence("cfgmgr delete command", CFGMGR_DELETE_PARTS);

const completion_node_td CFGMGR_ADD_DELETES_WORD =
    keyword("cfgmgr_add_deletes", "add deletes to bulk");
const completion_node_td *const CFGMGR_ADD_DELETES_PARTS[] = {
    &CFGMGR_ADD_DELETES_WORD, &ANY_PATH};
const completion_node_td CFGMGR_ADD_DELETES =
    sequence("cfgmgr add deletes command", CFGMGR_ADD_DELETES_PARTS);

const completion_node_td CFGMGR_ADDDIFFS_WORD =
    keyword("cfgmgr_adddiffs", "add diffs from an XND file to bulk");
const completion_node_td *const CFGMGR_ADDDIFFS_OPTION_CHOICES[] = {
    &DEST_ARGUMENT, &FILTER_ARGUMENT, &MATCH_ARGUMENT, &REVERSE_DIFFS};
const completion_node_td CFGMGR_ADDDIFFS_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "cfgmgr_adddiffs options",
          CFGMGR_ADDDIFFS_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const CFGMGR_ADDDIFFS_PARTS[] = {
    &CFGMGR_ADDDIFFS_WORD, &FILE_TO_READ, &CFGMGR_ADDDIFFS_OPTIONS};
const completion_node_td CFGMGR_ADDDIFFS =
    sequence("cfgmgr_adddiffs command", CFGMGR_ADDDIFFS_PARTS);

const completion_node_td CFGMGR_ENDBULK_WORD = keyword(
    "cfgmgr_endbulk", "end bulk operation and save diffs to an XND file");
const completion_node_td *const CFGMGR_ENDBULK_OPTION_CHOICES[] = {
    &FILE_TO_CREATE, &ATOMIC};
const completion_node_td CFGMGR_ENDBULK_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "cfgmgr_endbulk options",
          CFGMGR_ENDBULK_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const CFGMGR_ENDBULK_PARTS[] = {
    &CFGMGR_ENDBULK_WORD, &CFGMGR_ENDBULK_OPTIONS};
const completion_node_td CFGMGR_ENDBULK =
    sequence("cfgmgr_endbulk command", CFGMGR_ENDBULK_PARTS);

const completion_node_td CFGMGR_MERGE_DIFFS_WORD = keyword(
    "cfgmgr_merge_diffs", "merge diffs in XND files and add to bulk");
const completion_node_td *const CFGMGR_MERGE_DIFFS_PARTS[] = {
    &CFGMGR_MERGE_DIFFS_WORD, &MERGE_OPTIONS};
const completion_node_td CFGMGR_MERGE_DIFFS =
    sequence("cfgmgr_merge_diffs command", CFGMGR_MERGE_DIFFS_PARTS);

const completion_node_td CFGMGR_MERGE_DIFFS_LIST_WORD = keyword(
    "cfgmgr_merge_diffs_list", "merge diffs in XND files and display");
const completion_node_td *const CFGMGR_MERGE_DIFFS_LIST_PARTS[] = {
    &CFGMGR_MERGE_DIFFS_LIST_WORD, &MERGE_OPTIONS};
const completion_node_td CFGMGR_MERGE_DIFFS_LIST = sequence(
    "cfgmgr_merge_diffs_list command", CFGMGR_MERGE_DIFFS_LIST_PARTS);

const completion_node_td CFGMGR_MERGE_DELTA_WORD =
    keyword("cfgmgr_merge_delta", "merge base and delta XNF files");
const completion_node_td *const CFGMGR_MERGE_DELTA_PARTS[] = {
    &CFGMGR_MERGE_DELTA_WORD, &FILE_TO_READ, &FILE_TO_READ, &FILE_TO_CREATE};
const completion_node_td CFGMGR_MERGE_DELTA =
    sequence("cfgmgr_merge_delta command", CFGMGR_MERGE_DELTA_PARTS);

const completion_node_td CFGMGR_RESTORE_DELTA_WORD = keyword(
    "cfgmgr_restore_delta", "merge and restore base and delta XNF files");
const completion_node_td *const CFGMGR_RESTORE_DELTA_OPTION_CHOICES[] = {
    &FILE_TO_CREATE, &ATOMIC};
const completion_node_td CFGMGR_RESTORE_DELTA_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "cfgmgr_restore_delta options",
          CFGMGR_RESTORE_DELTA_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const CFGMGR_RESTORE_DELTA_PARTS[] = {
    &CFGMGR_RESTORE_DELTA_WORD, &FILE_TO_READ, &FILE_TO_READ,
    &CFGMGR_RESTORE_DELTA_OPTIONS};
const completion_node_td CFGMGR_RESTORE_DELTA =
    sequence("cfgmgr_restore_delta command", CFGMGR_RESTORE_DELTA_PARTS);

const completion_node_td COPY_WORD =
    keyword("copy", "copy an item, subtree or regular expression");
const completion_node_td *const COPY_OPTION_CHOICES[] = {
    &ATOMIC, &APPLY_LEVELS, &INITIAL_LOAD, &COMP_REGEXP, &MATCH_ARGUMENT};
const completion_node_td COPY_OPTIONS = group(
    COMPLETION_NODE_REPEAT, "copy options", COPY_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const COPY_PARTS[] = {&COPY_WORD, &ANY_PATH,
                                                &ANY_PATH, &COPY_OPTIONS};
const completion_node_td COPY = sequence("copy subtree command", COPY_PARTS);

/* -bulk and -nobulk come after the datatype, so they are offered only
 * once a datatype is typed. */
const completion_node_td GET_WORD = keyword("get", "get item");
const completion_node_td *const GET_OPTION_CHOICES[] = {&BULK, &NOBULK};
const completion_node_td GET_OPTIONS = group(
    COMPLETION_NODE_REPEAT, "get options", GET_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const GET_PARTS[] = {&GET_WORD, &ITEM_PATH,
                                               &DATATYPE, &GET_OPTIONS};
const completion_node_td GET = sequence("get item command", GET_PARTS);

const completion_node_td GET_INH_WORD = keyword("get_inh", "get inheritance");
const completion_node_td *const GET_INH_PARTS[] = {&GET_INH_WORD, &ITEM_PATH,
                                                   &DATATYPE};
const completion_node_td GET_INH =
    sequence("get inh item command", GET_INH_PARTS);

const completion_node_td MATCH_WORD = keyword("match", "match item");
const completion_node_td *const MATCH_COMMAND_PARTS[] = {
    &MATCH_WORD, &ITEM_PATH, &DATATYPE, &STRING};
const completion_node_td MATCH =
    sequence("match item command", MATCH_COMMAND_PARTS);

const completion_node_td VERIFY_WORD = keyword("verify", "verify item");
const completion_node_td *const VERIFY_PARTS[] = {&VERIFY_WORD, &ITEM_PATH,
                                                  &TYPED_VALUE};
const completion_node_td VERIFY = sequence("verify item command", VERIFY_PARTS);

const completion_node_td CFGMGR_ISSU_END_WORD =
    keyword("cfgmgr_issu_end", "end ISSU operation");
const completion_node_td *const CFGMGR_ISSU_END_PARTS[] = {
    &CFGMGR_ISSU_END_WORD};
const completion_node_td CFGMGR_ISSU_END =
    sequence("cfgmgr_issu_end command", CFGMGR_ISSU_END_PARTS);

const completion_node_td PING_WORD = keyword("ping", "ping");
const completion_node_td *const PING_PARTS[] = {&PING_WORD};
const completion_node_td PING = sequence("ping command", PING_PARTS);

const completion_node_td BIND_WORD = keyword("bind", "bind to directory");
const completion_node_td *const BIND_PARTS[] = {&BIND_WORD, &DIR_PATH,
                                                &BIND_OPTIONS};
const completion_node_td BIND = sequence("bind to another node", BIND_PARTS);

const completion_node_td CD_WORD = keyword("cd", "bind to directory");
const completion_node_td *const CD_PARTS[] = {&CD_WORD, &DIR_PATH,
                                              &BIND_OPTIONS};
const completion_node_td CD = sequence("cd to another node", CD_PARTS);

const completion_node_td LIST_WORD = keyword("list", "list directory");
const completion_node_td *const LIST_PARTS[] = {&LIST_WORD, &DIR_PATH,
                                                &LIST_OPTIONS};
const completion_node_td LIST = sequence("list command", LIST_PARTS);

const completion_node_td LS_WORD = keyword("ls", "list directory");
const completion_node_td *const LS_PARTS[] = {&LS_WORD, &DIR_PATH,
                                              &LIST_OPTIONS};
const completion_node_td LS = sequence("ls command", LS_PARTS);

const completion_node_td DATALIST_WORD =
    keyword("datalist", "datalist of directory");
const completion_node_td *const DATALIST_PARTS[] = {&DATALIST_WORD, &DIR_PATH,
                                                    &LIST_OPTIONS};
const completion_node_td DATALIST =
    sequence("datalist command", DATALIST_PARTS);

const completion_node_td ITERATE_WORD =
    keyword("iterate", "iterate over directory");
const completion_node_td ITERATE_NOT = keyword("-not", "negate a filter option");
const completion_node_td ITERATE_EDM =
    keyword("-edm", "iterate into EDM namespace");
const completion_node_td ITERATE_VALUES =
    keyword("-values", "iterate with data values");
const completion_node_td ITERATE_DATALIST =
    keyword("-datalist", "iterate with datalist optimization");
const completion_node_td ITERATE_NAME =
    keyword("-name", "specify a name filter");
const completion_node_td *const ITERATE_NAME_PARTS[] = {&ITERATE_NAME,
                                                        &ANY_PATH};
const completion_node_td ITERATE_NAME_ARGUMENT =
    with_argument(ITERATE_NAME_PARTS);
const completion_node_td ITERATE_DATATYPE_WORD =
    keyword("-datatype", "specify a datatype filter");
const completion_node_td *const ITERATE_DATATYPE_PARTS[] = {
    &ITERATE_DATATYPE_WORD, &ITERATE_DATATYPE};
const completion_node_td ITERATE_DATATYPE_ARGUMENT =
    with_argument(ITERATE_DATATYPE_PARTS);
const completion_node_td *const ITERATE_OPTION_CHOICES[] = {
    &ITERATE_NOT,      &ITERATE_EDM,           &ITERATE_VALUES,
    &ITERATE_DATALIST, &ITERATE_NAME_ARGUMENT, &ITERATE_DATATYPE_ARGUMENT};
const completion_node_td ITERATE_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "iterate options", ITERATE_OPTION_CHOICES,
          OPTIONAL);
const completion_node_td *const ITERATE_PARTS[] = {&ITERATE_WORD, &ANY_PATH,
                                                   &ITERATE_OPTIONS};
const completion_node_td ITERATE = sequence("iterate command", ITERATE_PARTS);

const completion_node_td ERRORSLIST_WORD =
    keyword("errorslist", "display errors list");
const completion_node_td APPLY_ERRORS =
    keyword("-apply_errors", "for apply errors");
const completion_node_td *const ERRORSLIST_OPTION_CHOICES[] = {
    &APPLY_ERRORS, &NUM_ARGUMENT};
const completion_node_td ERRORSLIST_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "errors list options",
          ERRORSLIST_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const ERRORSLIST_PARTS[] = {&ERRORSLIST_WORD,
                                                      &ERRORSLIST_OPTIONS};
const completion_node_td ERRORSLIST =
    sequence("display errors list", ERRORSLIST_PARTS);

const completion_node_td SETTIMEOUT_WORD =
    keyword("settimeout", "set timeout");
const completion_node_td *const SETTIMEOUT_PARTS[] = {&SETTIMEOUT_WORD,
                                                      &SECONDS};
const completion_node_td SETTIMEOUT =
    sequence("settimeout command", SETTIMEOUT_PARTS);

const completion_node_td DUMP_WORD =
    keyword("dump", "display a hex dump of item");
const completion_node_td *const DUMP_PARTS[] = {&DUMP_WORD, &ITEM_PATH,
                                                &DATATYPE};
const completion_node_td DUMP = sequence("dump item command", DUMP_PARTS);

const completion_node_td FIND_WORD = keyword("find", "find over directory");
const completion_node_td *const FIND_PARTS[] = {&FIND_WORD, &DIR_PATH,
                                                &FIND_OPTIONS};
const completion_node_td FIND = sequence("find command", FIND_PARTS);

const completion_node_td FINDDATA_WORD =
    keyword("finddata", "data find over directory");
const completion_node_td *const FINDDATA_PARTS[] = {&FINDDATA_WORD, &DIR_PATH,
                                                    &FIND_OPTIONS};
const completion_node_td FINDDATA =
    sequence("finddata command", FINDDATA_PARTS);

const completion_node_td EVENTFIND_WORD =
    keyword("eventfind", "event find over directory");
const completion_node_td *const EVENTFIND_OPTION_CHOICES[] = {
    &REVERSE, &START_ARGUMENT, &NUM_ARGUMENT, &NEXT,
    &REGEXP,  &COMP_REGEXP,    &BULK,         &NOBULK};
const completion_node_td EVENTFIND_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "event find options",
          EVENTFIND_OPTION_CHOICES, OPTIONAL);
const completion_node_td *const EVENTFIND_PARTS[] = {
    &EVENTFIND_WORD, &DIR_PATH, &EVENTFIND_OPTIONS};
const completion_node_td EVENTFIND =
    sequence("event find command", EVENTFIND_PARTS);

const completion_node_td FILESAVE_WORD =
    keyword("filesave", "save item(s) to an XNF file");
const completion_node_td SRC = keyword("-src", "specify a source path");
const completion_node_td *const SRC_PARTS[] = {&SRC, &ANY_PATH};
const completion_node_td SRC_ARGUMENT = with_argument(SRC_PARTS);
const completion_node_td NODELETES =
    keyword("-nodeletes", "do not include delete operations");
const completion_node_td *const FILESAVE_OPTION_CHOICES[] = {
    &SRC_ARGUMENT, &MATCH_ARGUMENT, &REGEXP,    &COMP_REGEXP,
    &BULK,         &NOBULK,         &NODELETES, &OLD_FORMAT};
const completion_node_td FILESAVE_OPTIONS =
    group(COMPLETION_NODE_REPEAT, "filesave options", FILESAVE_OPTION_CHOICES,
          OPTIONAL);
const completion_node_td *const FILESAVE_PARTS[] = {
    &FILESAVE_WORD, &FILE_TO_CREATE, &FILESAVE_OPTIONS};
const completion_node_td FILESAVE = sequence("filesave command", FILESAVE_PARTS);

const completion_node_td DO_WORD = keyword("do", "enter a CLI command");
const completion_node_td *const DO_PARTS[] = {&DO_WORD, &STRING};
const completion_node_td DO = sequence("do command", DO_PARTS);

const completion_node_td CONFIG_WORD =
    keyword("config", "enter a config command");
const completion_node_td *const CONFIG_PARTS[] = {&CONFIG_WORD, &STRING};
const completion_node_td CONFIG = sequence("config command", CONFIG_PARTS);

const completion_node_td HELP = keyword("help", "print extended help");
const completion_node_td EXIT = keyword("exit", "quit tarvocon");
const completion_node_td QUIT = keyword("quit", "quit tarvocon");

const completion_node_td GETITEMS_WORD = keyword("getitems", "get items");
const completion_node_td *const GETITEMS_PARTS[] = {
    &GETITEMS_WORD, &DIR_PATH, &ITEM_PATH, &ITEM_NAME, &ITEM_NAME, &ITEM_NAME};
const completion_node_td GETITEMS =
    sequence("get items command", GETITEMS_PARTS);

const completion_node_td *const COMMANDS[] = {
    &CREATE,
    &SET,
    &DELETE,
    &DELETE_COND,
    &RDLOCK,
    &WRLOCK,
    &UNLOCK,
    &STARTTRANS,
    &COMMITTRANS,
    &ABORTTRANS,
    &STARTBULK,
    &ENDBULK,
    &ABORTBULK,
    &REMOVE_BULK_OP,
    &BULK_NUM_OPS,
    &SUSPENDVRFN,
    &RESUMEVRFN,
    &FILERESTORE,
    &CFGMGR_DELETE,
    &CFGMGR_ADD_DELETES,
    &CFGMGR_ADDDIFFS,
    &CFGMGR_ENDBULK,
    &CFGMGR_MERGE_DIFFS,
    &CFGMGR_MERGE_DIFFS_LIST,
    &CFGMGR_MERGE_DELTA,
    &CFGMGR_RESTORE_DELTA,
    &COPY,
    &GET,
    &GET_INH,
    &MATCH,
    &VERIFY,
    &CFGMGR_ISSU_END,
    &PING,
    &BIND,
    &CD,
    &LIST,
    &LS,
    &DATALIST,
    &ITERATE,
    &ERRORSLIST,
    &SETTIMEOUT,
    &DUMP,
    &FIND,
    &FINDDATA,
    &EVENTFIND,
    &FILESAVE,
    &DO,
    &CONFIG,
    &HELP,
    &EXIT,
    &QUIT,
    &GETITEMS,
};
static_assert(sizeof(COMMANDS) / sizeof(COMMANDS[0]) == 52,
              "the root has 52 alternatives");

const completion_node_td ROOT =
    group(COMPLETION_NODE_CHOICE, "commands choice", COMMANDS);

} // namespace

extern "C" const completion_node_td *const completion_grammar_root = &ROOT;
