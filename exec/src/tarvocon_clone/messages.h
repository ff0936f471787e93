/*
 * The message catalogue of the facility TARVO: every definition with its
 * mnemonic, code, severity and format. Codes are consecutive from 0x2320089,
 * in the order of the mnemonics compared without their underscores; the
 * definitions marked 0 in the "printed" column belong to the database's own
 * processes and are never printed by the console.
 *
 * X(MNEMONIC, lower_case_name, code, severity, printed, format)
 */
#ifndef TARVOCON_MESSAGES_H
#define TARVOCON_MESSAGES_H

#include "platform/msg.h"

#define TARVOCON_MESSAGE_LIST(X) \
    X(ATTR_INIT_FAIL, attr_init_fail, 0x2320089, 3, 0, "Unable to initialise thread attributes: %s") \
    X(ATTR_SET_FAIL, attr_set_fail, 0x232008a, 3, 0, "Unable to set thread attribute: %s") \
    X(BAG_CREATE_ERR, bag_create_err, 0x232008b, 4, 1, "Error creating bag: %s\n") \
    X(BAG_DECODE_ERR, bag_decode_err, 0x232008c, 4, 1, "\nBag decoding error: %s\n") \
    X(BAG_HDR_FAIL, bag_hdr_fail, 0x232008d, 4, 1, "\nError reading bag header: %s\n") \
    X(BAG_TYPE_FAIL, bag_type_fail, 0x232008e, 4, 1, "Bag cannot be decoded since its type has not been registered\n") \
    X(ENCODER_ERR, encoder_err, 0x232008f, 4, 1, "Error starting bag encoder: %s\n") \
    X(EVENT_MGR_FAIL, event_mgr_fail, 0x2320090, 3, 0, "Event manager failure: %s") \
    X(HEALTH_CHK_FAIL, health_chk_fail, 0x2320091, 3, 0, "Health check failed: %s") \
    X(HEALTH_TIMER_FAIL, health_timer_fail, 0x2320092, 3, 0, "Unable to start the health check timer: %s") \
    X(MALLOC_FAIL, malloc_fail, 0x2320093, 3, 0, "Unable to allocate %u bytes") \
    X(MEM_FAIL, mem_fail, 0x2320094, 4, 1, "TarvoCon: no memory for opaque data\n") \
    X(MEM_LOW, mem_low, 0x2320095, 6, 0, "Memory is running low: %u bytes free") \
    X(NODEID_FAIL, nodeid_fail, 0x2320096, 3, 0, "Unable to determine the node id: %s") \
    X(PTHREAD_CREATE_FAIL, pthread_create_fail, 0x2320097, 3, 0, "Unable to create thread: %s") \
    X(QSM_FAIL, qsm_fail, 0x2320098, 3, 0, "Shared memory failure: %s") \
    X(SC_ABORTBULK, sc_abortbulk, 0x2320099, 4, 1, "[Tarvocon] While aborting a bulk operation the following error occurred:\n%s") \
    X(SC_ABORTTRANS, sc_aborttrans, 0x232009a, 4, 1, "[Tarvocon] While aborting a transaction the following error occurred:\n%s") \
    X(SC_BADFORMAT, sc_badformat, 0x232009b, 4, 1, "[Tarvocon] Badly formatted command") \
    X(SC_BAD_INTEGER, sc_bad_integer, 0x232009c, 4, 1, "[Tarvocon] Warning: bad integer format or integer value is out of range.") \
    X(SC_BIND, sc_bind, 0x232009d, 5, 1, "[Tarvocon] Could not bind to Tarvo: %s") \
    X(SC_BIND_NOTFOUND, sc_bind_notfound, 0x232009e, 4, 1, "[Tarvocon] Warning: now bound to a non-existent node.") \
    X(SC_BULK_NUM_OPS, sc_bulk_num_ops, 0x232009f, 4, 1, "[Tarvocon] While getting the number of operations in the bulk the following error occurred:\n%s") \
    X(SC_CFGMGR_ADD_DELETES, sc_cfgmgr_add_deletes, 0x23200a0, 4, 1, "[Tarvocon] While adding deletes to the bulk buffer the following error occurred:\n%s") \
    X(SC_CFGMGR_ADDDIFFS, sc_cfgmgr_adddiffs, 0x23200a1, 4, 1, "[Tarvocon] While adding diffs to the bulk the following error occurred:\n%s") \
    X(SC_CFGMGR_DELETE, sc_cfgmgr_delete, 0x23200a2, 4, 1, "[Tarvocon] While performing a bulk regular expression delete the following error occurred:\n%s") \
    X(SC_CFGMGR_MERGE, sc_cfgmgr_merge, 0x23200a3, 4, 1, "[Tarvocon] While merging files the following error occurred:\n%s") \
    X(SC_CFGMGR_REMOVE_DELETES, sc_cfgmgr_remove_deletes, 0x23200a4, 4, 1, "[Tarvocon] While removing deletes to the bulk buffer the following error occurred:\n%s") \
    X(SC_COMMITTRANS, sc_committrans, 0x23200a5, 4, 1, "[Tarvocon] While committing a transaction the following error occurred:\n%s") \
    X(SC_COPY, sc_copy, 0x23200a6, 4, 1, "[Tarvocon] While copying item %s to %s the following error occurred:\n%s") \
    X(SC_CREATE, sc_create, 0x23200a7, 4, 1, "[Tarvocon] While creating item %s the following error occurred:\n%s") \
    X(SC_DATAFIND, sc_datafind, 0x23200a8, 4, 1, "[Tarvocon] While executing the find data request the following error occurred:\n%s") \
    X(SC_DATALIST, sc_datalist, 0x23200a9, 4, 1, "[Tarvocon] While executing the datalist request the following error occurred:\n%s") \
    X(SC_DATATYPE, sc_datatype, 0x23200aa, 4, 1, "[Tarvocon] Unrecognised datatype (%s)") \
    X(SC_DATATYPERET, sc_datatyperet, 0x23200ab, 5, 1, "[Tarvocon] Tarvo returned unrecognised datatype (%u)") \
    X(SC_DELETE, sc_delete, 0x23200ac, 4, 1, "[Tarvocon] While deleting item %s the following error occurred:\n%s") \
    X(SC_EDM_NOT, sc_edm_not, 0x23200ad, 4, 1, "[Tarvocon] While generating EDM notifications the following error occurred:\n%s") \
    X(SC_ENDBULK, sc_endbulk, 0x23200ae, 4, 1, "[Tarvocon] While ending a bulk operation the following error occurred:\n%s") \
    X(SC_ERRORSLIST, sc_errorslist, 0x23200af, 4, 1, "[Tarvocon] While executing the errors list request the following error occurred:\n%s") \
    X(SC_EVENT, sc_event, 0x23200b0, 4, 1, "[Tarvocon] Unrecognised notification event (%s)") \
    X(SC_EVENTFIND, sc_eventfind, 0x23200b1, 4, 1, "[Tarvocon] While executing the event find request the following error occurred:\n%s") \
    X(SC_EXCESS, sc_excess, 0x23200b2, 4, 1, "[Tarvocon] Excess tokens in command string") \
    X(SC_EXTFMTSTR, sc_extfmtstr, 0x23200b3, 5, 1, "[Tarvocon] Unable to extract format string from packed tuple") \
    X(SC_FILEREAD, sc_fileread, 0x23200b4, 5, 1, "[Tarvocon] Unable to read from command file") \
    X(SC_FILERESTORE, sc_filerestore, 0x23200b5, 4, 1, "[Tarvocon] While restoring items from a file the following error occurred:\n%s") \
    X(SC_FILESAVE, sc_filesave, 0x23200b6, 4, 1, "[Tarvocon] While saving items to a file the following error occurred:\n%s") \
    X(SC_FIND, sc_find, 0x23200b7, 4, 1, "[Tarvocon] While executing the find request the following error occurred:\n%s") \
    X(SC_GENERIC, sc_generic, 0x23200b8, 4, 1, "[Tarvocon] While performing operation '%s' the following error occurred:\n%s") \
    X(SC_GET, sc_get, 0x23200b9, 4, 1, "[Tarvocon] While fetching item %s the following error occurred:\n%s") \
    X(SC_GET_INH, sc_get_inh, 0x23200ba, 4, 1, "[Tarvocon] While fetching item's inheritance from path %s the following error occurred:\n%s") \
    X(SC_GET_ITEMS, sc_get_items, 0x23200bb, 4, 1, "[Tarvocon] While fetching items from path %s the following error occurred:\n%s") \
    X(SC_INTERR, sc_interr, 0x23200bc, 5, 1, "[Tarvocon] An internal error has occurred") \
    X(SC_ITERATE, sc_iterate, 0x23200bd, 4, 1, "[Tarvocon] While executing the iterate request the following error occurred:\n%s") \
    X(SC_LIST, sc_list, 0x23200be, 4, 1, "[Tarvocon] While executing the list request the following error occurred:\n%s") \
    X(SC_MISMATCH, sc_mismatch, 0x23200bf, 4, 1, "[Tarvocon] Mismatched quotes in command") \
    X(SC_MISSEVENT, sc_missevent, 0x23200c0, 4, 1, "[Tarvocon] Missing notification event") \
    X(SC_MISSFILENAME, sc_missfilename, 0x23200c1, 4, 1, "[Tarvocon] Missing file name") \
    X(SC_MISSNAME, sc_missname, 0x23200c2, 4, 1, "[Tarvocon] Missing item name") \
    X(SC_MISSTYPE, sc_misstype, 0x23200c3, 4, 1, "[Tarvocon] Missing item type") \
    X(SC_MISSVALUE, sc_missvalue, 0x23200c4, 4, 1, "[Tarvocon] Missing item value") \
    X(SC_NOFILE, sc_nofile, 0x23200c5, 5, 1, "[Tarvocon] The specified command file (%s) could not be opened") \
    X(SC_PATHCREATE, sc_pathcreate, 0x23200c6, 4, 1, "[Tarvocon] Unable to create full path from path supplied\nCurrent dir: %s\nPath supplied %s") \
    X(SC_PKDFMTSTR, sc_pkdfmtstr, 0x23200c7, 4, 1, "[Tarvocon] Format string contains illegal character (%c)") \
    X(SC_PKDREAD, sc_pkdread, 0x23200c8, 5, 1, "[Tarvocon] Unable to read in data for packed tuple") \
    X(SC_PKDTUPLECRE, sc_pkdtuplecre, 0x23200c9, 5, 1, "[Tarvocon] Unable to create packed tuple") \
    X(SC_PKDTUPLEFILE, sc_pkdtuplefile, 0x23200ca, 5, 1, "[Tarvocon] No data for packed tuple in file") \
    X(SC_RDLOCK, sc_rdlock, 0x23200cb, 4, 1, "[Tarvocon] While getting a read lock the following error occurred:\n%s") \
    X(SC_READERINIT, sc_readerinit, 0x23200cc, 5, 1, "[Tarvocon] Unable to initialize the command line reader") \
    X(SC_REBIND, sc_rebind, 0x23200cd, 4, 1, "[Tarvocon] While binding to %s the following error occurred:\n%s") \
    X(SC_REMOVE_BULK_OP, sc_remove_bulk_op, 0x23200ce, 4, 1, "[Tarvocon] While removing operation on %s the following error occurred:\n%s") \
    X(SC_SET, sc_set, 0x23200cf, 4, 1, "[Tarvocon] While setting item %s the following error occurred:\n%s") \
    X(SC_STARTBULK, sc_startbulk, 0x23200d0, 4, 1, "[Tarvocon] While starting a bulk operation the following error occurred:\n%s") \
    X(SC_STARTTRANS, sc_starttrans, 0x23200d1, 4, 1, "[Tarvocon] While starting a transaction the following error occurred:\n%s") \
    X(SC_UNKCMD, sc_unkcmd, 0x23200d2, 4, 1, "[Tarvocon] Unrecognised command.  Type help or ? for a list of available commands") \
    X(SC_UNLOCK, sc_unlock, 0x23200d3, 4, 1, "[Tarvocon] While releasing a lock the following error occurred:\n%s") \
    X(SC_UNPACKTUP, sc_unpacktup, 0x23200d4, 5, 1, "[Tarvocon] Unable to unpack packed tuple") \
    X(SC_VERIFY, sc_verify, 0x23200d5, 4, 1, "[Tarvocon] Verification failed on item %s for the following reason\n%s") \
    X(SC_VRFNRES, sc_vrfnres, 0x23200d6, 4, 1, "[Tarvocon] While resuming verification the following error occurred:\n%s") \
    X(SC_VRFNSUSP, sc_vrfnsusp, 0x23200d7, 4, 1, "[Tarvocon] While suspending verification the following error occurred:\n%s") \
    X(SC_WRLOCK, sc_wrlock, 0x23200d8, 4, 1, "[Tarvocon] While getting a write lock the following error occurred:\n%s") \
    X(SET_TARGET_NODE_FAIL, set_target_node_fail, 0x23200d9, 3, 0, "Unable to set the target node: %s") \
    X(SYNC_FAIL, sync_fail, 0x23200da, 3, 0, "Synchronisation with the peer server failed: %s") \
    X(USAGE_STATS, usage_stats, 0x23200db, 6, 0, "Usage: %u binds, %u requests") \
    X(USAGE_STATS_FAIL, usage_stats_fail, 0x23200dc, 3, 0, "Unable to collect usage statistics: %s")

/* One accessor per mnemonic, e.g. tarvocon_msg_sc_missname(). */
#define TARVOCON_DECLARE_ACCESSOR(NAME, lower, code, sev, printed, fmt) \
    const vel_msgdef_td *tarvocon_msg_##lower(void);
TARVOCON_MESSAGE_LIST(TARVOCON_DECLARE_ACCESSOR)
#undef TARVOCON_DECLARE_ACCESSOR

/* The whole catalogue, in code order, for lookups and checks. */
const vel_msgdef_td *tarvocon_msg_catalogue(unsigned *count);

#endif
