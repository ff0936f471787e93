// Writes a console command file of random lines for random_commands.sh:
//
//   random_driver <seed> <lines> <dir>
//
// Seven lines in ten are well-formed commands over a small set of paths,
// datatypes and values (items made and changed, transactions and bulks
// opened and ended in any order, locks, finds, event and error lists, saved
// trees and diff files in <dir>, some of them missing); the others are a
// command word followed by up to six tokens of anything the console might
// be pasted: options of other commands, numbers past every range, quotes
// and escapes, pattern characters, paths of files that cannot be written.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

const Words COMMANDS = {
    "create", "set", "delete", "delete_cond", "get", "dump", "get_inh", "getitems", "verify",
    "match", "copy", "list", "ls", "datalist", "find", "finddata", "iterate", "eventfind",
    "errorslist", "starttrans", "committrans", "aborttrans", "startbulk", "endbulk", "abortbulk",
    "remove_bulk_op", "bulk_num_ops", "rdlock", "wrlock", "unlock", "settimeout", "suspendvrfn",
    "resumevrfn", "edmnotify", "ping", "filesave", "filerestore", "cfgmgr_adddiffs",
    "cfgmgr_endbulk", "cfgmgr_delete_area", "cfgmgr_mergediffs", "cfgmgr_errorslist",
    "cfgmgr_clear_errorslist", "cfgmgr_issu_end", "cd", "bind", "pwd", "help"};
const Words OPTIONS = {
    "-b", "-atomic", "-update", "-issu", "-commit_replace", "-regexp", "-comp_regexp",
    "-reverse", "-dirs", "-norecurse", "-num", "-start", "-next", "-chunk", "-bulk", "-nobulk",
    "-strict", "-values", "-edm", "-not", "-name", "-datatype", "-datalist",
    "-precommit_changes", "-debug_wp", "-src", "-dest", "-reverse_diffs", "-expand", "-force",
    "-int_rollback", "-id", "-ag", "-ah", "-x"};
const Words TYPES = {"uint8", "int8",  "uint16", "int16",  "uint32", "int32", "uint64",
                     "int64", "string", "packed", "bag",  "dir",    "bool"};
const Words PATHS = {"/a", "/a/b", "/a/b/c", "a", "b/c", "/x/y", "/cfg/q", "..", ".", "/",
                     "/a/*", "/a/.*", "x*"};
const Words NUMBERS = {"0", "1", "-1", "255", "256", "65535", "2147483648", "4294967296",
                       "18446744073709551616", "-9223372036854775808", "0x10", "1e3", "abc"};
const Words ITEMS = {"/a/b/i1", "/a/b/i2", "/a/c", "/a/b/d/e", "/z/q", "i1", "b/i2"};
const Words VALUE_TYPES = {"uint8", "int16", "uint32", "int64", "string", "uint64"};
const Words VALUES = {"1", "-5", "300", "0xff", "hello", "70000", "18446744073709551615"};

class Lines {
public:
    Lines(unsigned seed, std::string dir) : rng_(seed), dir_(std::move(dir)) {}

    std::string line()
    {
        return chance(7, 10) ? command() : garbage();
    }

private:
    bool chance(unsigned in, unsigned of) { return rng_() % of < in; }
    std::string pick(const Words &words) { return words[rng_() % words.size()]; }
    std::string file(const char *stem, const char *extension)
    {
        return dir_ + "/" + stem + std::to_string(rng_() % 3) + extension;
    }
    std::string typed() { return pick(ITEMS) + " " + pick(VALUE_TYPES) + " " + pick(VALUES); }

    std::string command()
    {
        switch (rng_() % 22) {
        case 0: return "create " + typed();
        case 1: return "set " + typed();
        case 2: return "delete " + pick({"/a/b/i1", "/a/b/i2", "/a/c", "/a", "/a/b", "/z"});
        case 3: return "get " + pick(ITEMS);
        case 4:
            return "datalist " + pick({"/a", "/a/b", "/", "/z"}) + " " +
                   pick({"", "-num 1", "-chunk", "-reverse", "-bulk", "-nobulk", "-start i2"});
        case 5:
            return "find " + pick({"", "i", "/a", ".*", "i[12]"}) + " " +
                   pick({"", "-regexp", "-comp_regexp", "-dirs", "-norecurse", "-chunk 2",
                         "-strict", "-bulk"});
        case 6:
            return "iterate " + pick({"/a", "/", "/z"}) + " " +
                   pick({"", "-values", "-not -name i*", "-datatype uint32",
                         "-name i1 -datatype string"});
        case 7:
            return "eventfind " + pick({"", "/a", "i1"}) + " " +
                   pick({"", "-precommit_changes", "-debug_wp", "-reverse"});
        case 8: return "starttrans " + pick({"", "-b", "5", "-b 1"});
        case 9:
            return pick({"committrans", "aborttrans", "endbulk", "abortbulk",
                         "endbulk -commit_replace", "bulk_num_ops", "errorslist", "resumevrfn",
                         "suspendvrfn", "ping", "cfgmgr_issu_end"});
        case 10: return "startbulk " + pick({"", "-atomic", "-update", "-issu", "-int_rollback"});
        case 11: return pick({"rdlock", "wrlock", "unlock"}) + " " + pick({"/a", "/a/b", "/z", ""});
        case 12: return "filesave " + file("s", ".xnf") + " -src " + pick({"/a", "/a/b", "/z"});
        case 13:
            return "filerestore " + file("s", ".xnf") + " -dest " + pick({"/a", "/r", "/z/r"}) +
                   " " + pick({"", "-update", "-atomic"});
        case 14: return "cfgmgr_endbulk " + file("d", ".xnd");
        case 15: return "cfgmgr_adddiffs " + file("d", ".xnd") + " " + pick({"", "-reverse_diffs"});
        case 16:
            return "copy " + pick(ITEMS) + " " + pick({"/r", "/z/c", "/a/b/x"});
        case 17: return "cd " + pick({"/a", "/a/b", "..", "/", "/z"});
        case 18: return "remove_bulk_op " + pick(ITEMS);
        case 19: return "verify " + typed();
        case 20: return "match " + typed();
        default: return "delete_cond " + typed();
        }
    }

    std::string token()
    {
        const unsigned k = rng_() % 20;
        if (k < 6)
            return pick(PATHS);
        if (k < 9)
            return pick(OPTIONS);
        if (k < 12)
            return pick(TYPES);
        if (k < 15)
            return pick(NUMBERS);
        if (k < 17)
            return dir_ + pick({"/f1.xnf", "/f2.xnd", "/nodir/f.xnf", "/f3"});
        std::string text;
        const char *alphabet = k == 17 ? "ab \t\\\"'x" : "abc/_-.*?[]{}()$0123456789";
        const size_t size = strlen(alphabet);
        for (unsigned n = rng_() % 12; n > 0; n--)
            text += alphabet[rng_() % size];
        return k == 17 ? "\"" + text + "\"" : text.empty() ? "x" : text;
    }

    std::string garbage()
    {
        std::string line = pick(COMMANDS);
        for (unsigned n = rng_() % 7; n > 0; n--)
            line += " " + token();
        return line;
    }

    std::mt19937 rng_;
    std::string dir_;
};

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 4) {
        fprintf(stderr, "usage: random_driver <seed> <lines> <dir>\n");
        return 2;
    }
    Lines lines(static_cast<unsigned>(strtoul(argv[1], nullptr, 10)), argv[3]);
    printf("/\n");
    for (long n = strtol(argv[2], nullptr, 10); n > 0; n--)
        printf("%s\n", lines.line().c_str());
    return 0;
}
