/*
 * help: the usage text, the command help and the types help, written through
 * the pager in that order with nothing in between.
 */
#include <stdio.h>

#include "tarvocon.h"

/* Two lines end in a blank: the get_inh line and "argument = path or -s ". */
static const char TARVOCON_COMMAND_HELP[] =
    "  bind or cd       [path] [-d|-m|-l|-s|-h|-o <bind_options>]\n"
    "  copy             src_path dest_path [-match match_string] [-atomic] [-apply_levels] [-initial_load] [-comp_regexp]\n"
    "  create           [path]item_name type value\n"
    "  datalist         [path] [-reverse] [-start item_name] [-num number] [-next] [-bulk] [-nobulk] [-chunk number]\n"
    "  delete           [path]item_name [-regexp] [-comp_regexp] [-atomic] [-apply_levels] [-initial_load] [-optimal]\n"
    "  delete_cond      [path]item_name type value\n"
    "  dump             [path]item_name [type]\n"
    "  errorslist       [-apply_errors] [-num number]\n"
    "  eventfind        [match] [-reverse] [-regexp] [-comp_regexp] [-start item_name] [-num number] [-next] [-bulk] [-nobulk] [-show_annot] [-show_exclude] [-only_annot] [-precommit_changes] [-strict]\n"
    "  filerestore      file_name [-dest path] [-match match_string] [-atomic] [-apply_levels] [-initial_load] [-update] [-old_format]\n"
    "  filesave         file_name [-src path] [-match match_string]* [-regexp] [-comp_regexp] [-bulk] [-nobulk] [-old_format]\n"
    "  find             [match] [-reverse] [-dirs] [-norecurse] [-regexp] [-comp_regexp] [-start item_name] [-num number] [-next] [-bulk] [-nobulk] [-chunk number] [-show_annot] [-show_exclude] [-only_annot] [-strict]\n"
    "  finddata         [match] [-reverse] [-dirs] [-norecurse] [-regexp] [-comp_regexp] [-start item_name] [-num number] [-next] [-bulk] [-nobulk] [-chunk number] [-ag|-ah] [-show_annot] [-show_exclude] [-only_annot] [-strict]\n"
    "  get              [path]item_name [type] [-bulk] [-nobulk]\n"
    "  get_inh          item_name \n"
    "  getitems         argument item_name [item_name] [item_name] [item_name]\n"
    "                   argument = path or -s \n"
    "                   -s : specify TARVO_ACCESS_OPTION_GET_ITEMS_SINGLE_NODE\n"
    "  iterate          [path] [-edm] [-values] [-datalist] [-not] <option>\n"
    "                   option = -name xxx | -datatype type\n"
    "  list or ls       [path] [-reverse] [-start item_name] [-num number] [-next] [-bulk] [-nobulk] [-chunk number]\n"
    "  match            [path]item_name [type] value\n"
    "  set              [path]item_name type value [-create]\n"
    "  settimeout       [secs]\n"
    "  verify           [path]item_name type value\n"
    "  cfgmgr_issu_end\n"
    "\n"
    "  abortbulk\n"
    "  endbulk\n"
    "  remove_bulk_op   [path]item_name [-creates|-deletes]\n"
    "  bulk_num_ops\n"
    "  startbulk        [-atomic] [-apply_levels] [-initial_load] [-update]\n"
    "\n"
    "  aborttrans\n"
    "  committrans\n"
    "  rdlock           [path]\n"
    "  resumevrfn\n"
    "  starttrans       [-b] [secs] [-apply_levels] [-initial_load]\n"
    "  suspendvrfn\n"
    "  unlock           [path]\n"
    "  wrlock           [path]\n"
    "\n"
    "  cfgmgr_adddiffs         file_name [-dest path] [-filter filter_string] [-match match_string] [-reverse_diffs]\n"
    "  cfgmgr_merge_diffs      file_name+ [-filter filter_string] [-match match_string] [-reverse_diffs] [-dest path] [-disable_optim]\n"
    "  cfgmgr_merge_diffs_list file_name+ [-reverse_diffs]\n"
    "  cfgmgr_merge_delta      base_file delta_file output_file\n"
    "  cfgmgr_restore_delta    base_file delta_file [output_file] [-atomic]\n"
    "  cfgmgr_endbulk          [file_name] [-atomic] [-forcelowmem] [-commit_replace]\n"
    "  cfgmgr_delete           path+ [-remove_only]\n"
    "  cfgmgr_add_deletes      path+\n"
    "  cfgmgr_remove_deletes\n"
    "  help or ?\n"
    "  quit or q or exit\n";

static const char TARVOCON_TYPES_HELP[] =
    "\n"
    "Currently supported types:\n"
    "\n"
    "  bag <bag-name>\n"
    "  packed <format-string>\n"
    "  string\n"
    "  uint32\n"
    "  uint64\n"
    "\n";

int tarvocon_help(void)
{
    FILE *stream = tarvocon_pager_open();
    if (stream == nullptr)
        return 0;
    fputs(tarvocon_usage_text, stream);
    fputs(TARVOCON_COMMAND_HELP, stream);
    fputs(TARVOCON_TYPES_HELP, stream);
    (void)tarvocon_pclose(stream);
    return 0;
}
