// The message catalogue against a table written independently from the
// documented catalogue: every printed definition's mnemonic, code, severity
// and format; the numbering of the whole facility from its mnemonics; the
// record layout and the printer's per-message records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tarvocon.h"

namespace {

struct Printed {
    const char *mnemonic;
    uint32_t code;
    uint32_t severity;
    const char *format;
};

const Printed kPrinted[] = {
    {"BAG_CREATE_ERR", 0x232008b, 4, "Error creating bag: %s\n"},
    {"BAG_DECODE_ERR", 0x232008c, 4, "\nBag decoding error: %s\n"},
    {"BAG_HDR_FAIL", 0x232008d, 4, "\nError reading bag header: %s\n"},
    {"BAG_TYPE_FAIL", 0x232008e, 4, "Bag cannot be decoded since its type has not been registered\n"},
    {"ENCODER_ERR", 0x232008f, 4, "Error starting bag encoder: %s\n"},
    {"MEM_FAIL", 0x2320094, 4, "TarvoCon: no memory for opaque data\n"},
    {"SC_ABORTBULK", 0x2320099, 4, "[Tarvocon] While aborting a bulk operation the following error occurred:\n%s"},
    {"SC_ABORTTRANS", 0x232009a, 4, "[Tarvocon] While aborting a transaction the following error occurred:\n%s"},
    {"SC_BADFORMAT", 0x232009b, 4, "[Tarvocon] Badly formatted command"},
    {"SC_BAD_INTEGER", 0x232009c, 4, "[Tarvocon] Warning: bad integer format or integer value is out of range."},
    {"SC_BIND", 0x232009d, 5, "[Tarvocon] Could not bind to Tarvo: %s"},
    {"SC_BIND_NOTFOUND", 0x232009e, 4, "[Tarvocon] Warning: now bound to a non-existent node."},
    {"SC_BULK_NUM_OPS", 0x232009f, 4, "[Tarvocon] While getting the number of operations in the bulk the following error occurred:\n%s"},
    {"SC_CFGMGR_ADD_DELETES", 0x23200a0, 4, "[Tarvocon] While adding deletes to the bulk buffer the following error occurred:\n%s"},
    {"SC_CFGMGR_ADDDIFFS", 0x23200a1, 4, "[Tarvocon] While adding diffs to the bulk the following error occurred:\n%s"},
    {"SC_CFGMGR_DELETE", 0x23200a2, 4, "[Tarvocon] While performing a bulk regular expression delete the following error occurred:\n%s"},
    {"SC_CFGMGR_MERGE", 0x23200a3, 4, "[Tarvocon] While merging files the following error occurred:\n%s"},
    {"SC_CFGMGR_REMOVE_DELETES", 0x23200a4, 4, "[Tarvocon] While removing deletes to the bulk buffer the following error occurred:\n%s"},
    {"SC_COMMITTRANS", 0x23200a5, 4, "[Tarvocon] While committing a transaction the following error occurred:\n%s"},
    {"SC_COPY", 0x23200a6, 4, "[Tarvocon] While copying item %s to %s the following error occurred:\n%s"},
    {"SC_CREATE", 0x23200a7, 4, "[Tarvocon] While creating item %s the following error occurred:\n%s"},
    {"SC_DATAFIND", 0x23200a8, 4, "[Tarvocon] While executing the find data request the following error occurred:\n%s"},
    {"SC_DATALIST", 0x23200a9, 4, "[Tarvocon] While executing the datalist request the following error occurred:\n%s"},
    {"SC_DATATYPE", 0x23200aa, 4, "[Tarvocon] Unrecognised datatype (%s)"},
    {"SC_DATATYPERET", 0x23200ab, 5, "[Tarvocon] Tarvo returned unrecognised datatype (%u)"},
    {"SC_DELETE", 0x23200ac, 4, "[Tarvocon] While deleting item %s the following error occurred:\n%s"},
    {"SC_EDM_NOT", 0x23200ad, 4, "[Tarvocon] While generating EDM notifications the following error occurred:\n%s"},
    {"SC_ENDBULK", 0x23200ae, 4, "[Tarvocon] While ending a bulk operation the following error occurred:\n%s"},
    {"SC_ERRORSLIST", 0x23200af, 4, "[Tarvocon] While executing the errors list request the following error occurred:\n%s"},
    {"SC_EVENT", 0x23200b0, 4, "[Tarvocon] Unrecognised notification event (%s)"},
    {"SC_EVENTFIND", 0x23200b1, 4, "[Tarvocon] While executing the event find request the following error occurred:\n%s"},
    {"SC_EXCESS", 0x23200b2, 4, "[Tarvocon] Excess tokens in command string"},
    {"SC_EXTFMTSTR", 0x23200b3, 5, "[Tarvocon] Unable to extract format string from packed tuple"},
    {"SC_FILEREAD", 0x23200b4, 5, "[Tarvocon] Unable to read from command file"},
    {"SC_FILERESTORE", 0x23200b5, 4, "[Tarvocon] While restoring items from a file the following error occurred:\n%s"},
    {"SC_FILESAVE", 0x23200b6, 4, "[Tarvocon] While saving items to a file the following error occurred:\n%s"},
    {"SC_FIND", 0x23200b7, 4, "[Tarvocon] While executing the find request the following error occurred:\n%s"},
    {"SC_GENERIC", 0x23200b8, 4, "[Tarvocon] While performing operation '%s' the following error occurred:\n%s"},
    {"SC_GET", 0x23200b9, 4, "[Tarvocon] While fetching item %s the following error occurred:\n%s"},
    {"SC_GET_INH", 0x23200ba, 4, "[Tarvocon] While fetching item's inheritance from path %s the following error occurred:\n%s"},
    {"SC_GET_ITEMS", 0x23200bb, 4, "[Tarvocon] While fetching items from path %s the following error occurred:\n%s"},
    {"SC_INTERR", 0x23200bc, 5, "[Tarvocon] An internal error has occurred"},
    {"SC_ITERATE", 0x23200bd, 4, "[Tarvocon] While executing the iterate request the following error occurred:\n%s"},
    {"SC_LIST", 0x23200be, 4, "[Tarvocon] While executing the list request the following error occurred:\n%s"},
    {"SC_MISMATCH", 0x23200bf, 4, "[Tarvocon] Mismatched quotes in command"},
    {"SC_MISSEVENT", 0x23200c0, 4, "[Tarvocon] Missing notification event"},
    {"SC_MISSFILENAME", 0x23200c1, 4, "[Tarvocon] Missing file name"},
    {"SC_MISSNAME", 0x23200c2, 4, "[Tarvocon] Missing item name"},
    {"SC_MISSTYPE", 0x23200c3, 4, "[Tarvocon] Missing item type"},
    {"SC_MISSVALUE", 0x23200c4, 4, "[Tarvocon] Missing item value"},
    {"SC_NOFILE", 0x23200c5, 5, "[Tarvocon] The specified command file (%s) could not be opened"},
    {"SC_PATHCREATE", 0x23200c6, 4, "[Tarvocon] Unable to create full path from path supplied\nCurrent dir: %s\nPath supplied %s"},
    {"SC_PKDFMTSTR", 0x23200c7, 4, "[Tarvocon] Format string contains illegal character (%c)"},
    {"SC_PKDREAD", 0x23200c8, 5, "[Tarvocon] Unable to read in data for packed tuple"},
    {"SC_PKDTUPLECRE", 0x23200c9, 5, "[Tarvocon] Unable to create packed tuple"},
    {"SC_PKDTUPLEFILE", 0x23200ca, 5, "[Tarvocon] No data for packed tuple in file"},
    {"SC_RDLOCK", 0x23200cb, 4, "[Tarvocon] While getting a read lock the following error occurred:\n%s"},
    {"SC_READERINIT", 0x23200cc, 5, "[Tarvocon] Unable to initialize the command line reader"},
    {"SC_REBIND", 0x23200cd, 4, "[Tarvocon] While binding to %s the following error occurred:\n%s"},
    {"SC_REMOVE_BULK_OP", 0x23200ce, 4, "[Tarvocon] While removing operation on %s the following error occurred:\n%s"},
    {"SC_SET", 0x23200cf, 4, "[Tarvocon] While setting item %s the following error occurred:\n%s"},
    {"SC_STARTBULK", 0x23200d0, 4, "[Tarvocon] While starting a bulk operation the following error occurred:\n%s"},
    {"SC_STARTTRANS", 0x23200d1, 4, "[Tarvocon] While starting a transaction the following error occurred:\n%s"},
    {"SC_UNKCMD", 0x23200d2, 4, "[Tarvocon] Unrecognised command.  Type help or ? for a list of available commands"},
    {"SC_UNLOCK", 0x23200d3, 4, "[Tarvocon] While releasing a lock the following error occurred:\n%s"},
    {"SC_UNPACKTUP", 0x23200d4, 5, "[Tarvocon] Unable to unpack packed tuple"},
    {"SC_VERIFY", 0x23200d5, 4, "[Tarvocon] Verification failed on item %s for the following reason\n%s"},
    {"SC_VRFNRES", 0x23200d6, 4, "[Tarvocon] While resuming verification the following error occurred:\n%s"},
    {"SC_VRFNSUSP", 0x23200d7, 4, "[Tarvocon] While suspending verification the following error occurred:\n%s"},
    {"SC_WRLOCK", 0x23200d8, 4, "[Tarvocon] While getting a write lock the following error occurred:\n%s"},
};

// Defined by the facility, never printed by the console.
const char *const kNotPrinted[] = {
    "ATTR_INIT_FAIL", "ATTR_SET_FAIL", "EVENT_MGR_FAIL", "HEALTH_CHK_FAIL",
    "HEALTH_TIMER_FAIL", "MALLOC_FAIL", "MEM_LOW", "NODEID_FAIL",
    "PTHREAD_CREATE_FAIL", "QSM_FAIL", "SET_TARGET_NODE_FAIL", "SYNC_FAIL",
    "USAGE_STATS", "USAGE_STATS_FAIL"};

std::map<std::string, const vel_msgdef_td *> CatalogueByMnemonic() {
    unsigned count = 0;
    const vel_msgdef_td *all = tarvocon_msg_catalogue(&count);
    std::map<std::string, const vel_msgdef_td *> by_name;
    for (unsigned i = 0; i < count; i++) by_name[all[i].mnemonic] = &all[i];
    EXPECT_EQ(by_name.size(), count) << "mnemonics are not unique";
    return by_name;
}

TEST(Catalogue, PrintedDefinitions) {
    ASSERT_EQ(sizeof(kPrinted) / sizeof(kPrinted[0]), 70u);
    auto by_name = CatalogueByMnemonic();
    for (const auto &p : kPrinted) {
        SCOPED_TRACE(p.mnemonic);
        auto it = by_name.find(p.mnemonic);
        ASSERT_NE(it, by_name.end());
        const vel_msgdef_td *def = it->second;
        EXPECT_EQ(def->code, p.code);
        EXPECT_EQ(def->severity, p.severity << 16);
        EXPECT_STREQ(def->format, p.format);
    }
}

// Codes follow the order of the mnemonics compared without underscores,
// over the whole facility, from 0x2320089.
TEST(Catalogue, NumberingFollowsTheMnemonics) {
    std::vector<std::string> names;
    for (const auto &p : kPrinted) names.push_back(p.mnemonic);
    for (const char *n : kNotPrinted) names.push_back(n);
    ASSERT_EQ(names.size(), 84u);
    auto key = [](std::string s) {
        s.erase(std::remove(s.begin(), s.end(), '_'), s.end());
        return s;
    };
    std::sort(names.begin(), names.end(),
              [&](const std::string &a, const std::string &b) {
                  return key(a) < key(b);
              });
    auto by_name = CatalogueByMnemonic();
    EXPECT_EQ(by_name.size(), 84u);
    for (size_t i = 0; i < names.size(); i++) {
        ASSERT_TRUE(by_name.count(names[i])) << names[i];
        EXPECT_EQ(by_name[names[i]]->code, 0x2320089u + i) << names[i];
    }
}

TEST(Catalogue, RecordLayout) {
    unsigned count = 0;
    const vel_msgdef_td *all = tarvocon_msg_catalogue(&count);
    ASSERT_EQ(count, 84u);
    for (unsigned i = 0; i < count; i++) {
        const vel_msgdef_td &def = all[i];
        SCOPED_TRACE(def.mnemonic);
        EXPECT_EQ(def.reserved0, 0u);
        EXPECT_EQ(def.reserved1, 0u);
        EXPECT_STREQ(def.facility, "TARVO");
        EXPECT_STREQ(def.facility_name, "TARVO");
        EXPECT_EQ(def.code, 0x2320089u + i) << "catalogue not in code order";
        bool console_message = strncmp(def.mnemonic, "SC_", 3) == 0;
        if (console_message) {
            ASSERT_NE(def.state, nullptr);
            EXPECT_EQ(def.state->enabled, 1u);
        } else {
            EXPECT_EQ(def.state, nullptr);
        }
        uint32_t severity = def.severity >> 16;
        EXPECT_EQ(def.severity & 0xffffu, 0u);
        EXPECT_TRUE(severity >= 3 && severity <= 6);
    }
    // Every SC_ definition has a record of its own.
    for (unsigned i = 0; i < count; i++) {
        for (unsigned j = i + 1; j < count && all[i].state != nullptr; j++)
            EXPECT_NE(all[i].state, all[j].state);
    }
}

} // namespace
