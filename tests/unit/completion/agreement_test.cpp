// The command table, the grammar and the handlers' option tables describe
// the same commands: every command of the grammar dispatches, exactly seven
// words of the table have no grammar entry, and every option word a handler
// accepts is offered under its command by the grammar and the reverse, but
// for the differences listed below.
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "tarvocon.h"
#include "tarvocon_clone/dispatch.h"
#include "tarvocon_commands_clone/options.h"
#include "tarvocon_completion_clone/completion.h"

namespace {

// Option words and whether each takes the next token as its value.
using Words = std::map<std::string, bool>;

// Where grammar and handler knowingly differ. Rows of commands whose
// handler has no registered table yet wait for it.
struct Difference {
    const char *command;
    const char *word;
    enum { HANDLER_ONLY, GRAMMAR_ONLY, ARGUMENT } kind;
};
const Difference DIFFERENCES[] = {
    {"bind", "-c", Difference::HANDLER_ONLY},
    {"bind", "-n", Difference::HANDLER_ONLY},
    {"bind", "-D", Difference::HANDLER_ONLY},
    {"bind", "-v", Difference::HANDLER_ONLY},
    {"bind", "-F", Difference::HANDLER_ONLY},
    {"cd", "-c", Difference::HANDLER_ONLY},
    {"cd", "-n", Difference::HANDLER_ONLY},
    {"cd", "-D", Difference::HANDLER_ONLY},
    {"cd", "-v", Difference::HANDLER_ONLY},
    {"cd", "-F", Difference::HANDLER_ONLY},
    {"delete", "-optimal", Difference::HANDLER_ONLY},
    {"getitems", "-s", Difference::HANDLER_ONLY}, // the grammar's path takes it
    // The grammar gives -initial_load the seconds; the handler reads them
    // wherever they stand.
    {"starttrans", "-initial_load", Difference::ARGUMENT},
    {"startbulk", "-issu", Difference::HANDLER_ONLY},
    {"startbulk", "-int_rollback", Difference::HANDLER_ONLY},
    {"endbulk", "-commit_replace", Difference::HANDLER_ONLY},
    {"cfgmgr_endbulk", "-forcelowmem", Difference::HANDLER_ONLY},
    {"cfgmgr_endbulk", "-commit_replace", Difference::HANDLER_ONLY},
    {"cfgmgr_endbulk", "-openconfig", Difference::HANDLER_ONLY},
    {"cfgmgr_merge_diffs", "-dest", Difference::HANDLER_ONLY},
    {"cfgmgr_merge_diffs", "-disable_optim", Difference::HANDLER_ONLY},
    {"cfgmgr_merge_diffs_list", "-filter", Difference::GRAMMAR_ONLY},
    {"cfgmgr_merge_diffs_list", "-match", Difference::GRAMMAR_ONLY},
    {"ping", "-memberset", Difference::HANDLER_ONLY},
    {"ping", "-physical", Difference::HANDLER_ONLY},
    {"ping", "-complement", Difference::HANDLER_ONLY},
    {"ping", "-other", Difference::HANDLER_ONLY},
    {"ping", "-admin", Difference::HANDLER_ONLY},
    {"ping", "-shared", Difference::HANDLER_ONLY},
    {"ping", "-local", Difference::HANDLER_ONLY},
    {"ping", "-active", Difference::HANDLER_ONLY},
    {"ping", "-standby", Difference::HANDLER_ONLY},
    {"ping", "-all", Difference::HANDLER_ONLY},
    {"ping", "-unknown", Difference::HANDLER_ONLY},
    {"ping", "-versioned", Difference::HANDLER_ONLY},
    {"ping", "-unversioned", Difference::HANDLER_ONLY},
    {"ping", "-id", Difference::HANDLER_ONLY},
    {"find", "-show_annot", Difference::HANDLER_ONLY},
    {"find", "-show_exclude", Difference::HANDLER_ONLY},
    {"find", "-only_annot", Difference::HANDLER_ONLY},
    {"find", "-only_exclude", Difference::HANDLER_ONLY},
    {"find", "-show_aza_aya", Difference::HANDLER_ONLY},
    {"find", "-strict", Difference::HANDLER_ONLY},
    {"finddata", "-ag", Difference::HANDLER_ONLY},
    {"finddata", "-ah", Difference::HANDLER_ONLY},
    {"finddata", "-show_annot", Difference::HANDLER_ONLY},
    {"finddata", "-show_exclude", Difference::HANDLER_ONLY},
    {"finddata", "-only_annot", Difference::HANDLER_ONLY},
    {"finddata", "-only_exclude", Difference::HANDLER_ONLY},
    {"finddata", "-show_aza_aya", Difference::HANDLER_ONLY},
    {"finddata", "-strict", Difference::HANDLER_ONLY},
    {"eventfind", "-show_annot", Difference::HANDLER_ONLY},
    {"eventfind", "-show_exclude", Difference::HANDLER_ONLY},
    {"eventfind", "-only_annot", Difference::HANDLER_ONLY},
    {"eventfind", "-only_exclude", Difference::HANDLER_ONLY},
    {"eventfind", "-strict", Difference::HANDLER_ONLY},
    {"eventfind", "-precommit_changes", Difference::HANDLER_ONLY},
    {"eventfind", "-debug_wp", Difference::HANDLER_ONLY},
};

const char *CommandWord(const completion_node_td *alternative)
{
    if (alternative->type == COMPLETION_NODE_KEYWORD)
        return alternative->name;
    return alternative->children[0]->name;
}

// The option words under a node: keywords beginning with '-'; one that
// starts a sequence of more than one node takes an argument.
void GrammarWords(const completion_node_td *node, Words *words)
{
    if (node->type == COMPLETION_NODE_KEYWORD && node->name[0] == '-')
        (*words)[node->name] = false;
    for (uint32_t i = 0; i < node->child_count; i++) {
        const completion_node_td *child = node->children[i];
        GrammarWords(child, words);
        if (node->type == COMPLETION_NODE_SEQUENCE && i == 0 &&
            child->type == COMPLETION_NODE_KEYWORD && child->name[0] == '-' &&
            node->child_count > 1)
            (*words)[child->name] = true;
    }
}

std::map<std::string, const completion_node_td *> GrammarCommands()
{
    std::map<std::string, const completion_node_td *> commands;
    for (uint32_t i = 0; i < completion_grammar_root->child_count; i++) {
        const completion_node_td *alternative = completion_grammar_root->children[i];
        commands[CommandWord(alternative)] = alternative;
    }
    return commands;
}

// The option words each registered handler accepts, over all its tables.
std::map<std::string, Words> HandlerTables()
{
    uint32_t count = 0;
    const tarvocon_command_options_td *tables = tarvocon_option_tables(&count);
    std::map<std::string, Words> result;
    for (uint32_t i = 0; i < count; i++) {
        Words &words = result[tables[i].command];
        const tarvocon_option_table_td *table = tables[i].table;
        for (uint32_t j = 0; j < table->count; j++) {
            EXPECT_TRUE(words.emplace(table->options[j].word, table->options[j].argument != 0).second)
                << tables[i].command << ": " << table->options[j].word << " registered twice";
        }
    }
    return result;
}

TEST(Agreement, GrammarCommandsAreTheTableWordsButSeven)
{
    auto commands = GrammarCommands();
    EXPECT_EQ(commands.size(), size_t{52}) << "a command word appears twice";
    for (const auto &[word, node] : commands) {
        int index = tarvocon_find_command(word.c_str());
        ASSERT_GE(index, 0) << word << " does not dispatch";
        EXPECT_EQ(word, tarvocon_command_table[index]);
    }
    std::set<std::string> without;
    for (int i = 0; i < TARVOCON_COMMAND_COUNT; i++) {
        if (commands.count(tarvocon_command_table[i]) == 0)
            without.insert(tarvocon_command_table[i]);
    }
    EXPECT_EQ(without, (std::set<std::string>{"q", "edmnotify", "cfgmgr_remove_deletes",
                                              "cfgmgr_get_applyerror",
                                              "cfgmgr_get_unscanned",
                                              "cfgmgr_clear_applyerror",
                                              "cfgmgr_clear_unscanned"}));
}

// Every command whose handler is in this build, and that the grammar
// describes, has its option table registered.
TEST(Agreement, EveryHandlerInTheGrammarHasAnOptionTable)
{
    auto commands = GrammarCommands();
    auto tables = HandlerTables();
    const tarvocon_command_row_td *rows = tarvocon_command_rows();
    for (int i = 0; i < TARVOCON_COMMAND_COUNT; i++) {
        const auto &row = rows[i];
        bool built = row.plain != tarvocon_not_available;
        if (built && commands.count(row.word) != 0) {
            EXPECT_EQ(tables.count(row.word), size_t{1}) << row.word;
        }
    }
    for (const auto &[word, table] : tables)
        EXPECT_GE(tarvocon_find_command(word.c_str()), 0) << word;
}

TEST(Agreement, HandlersAndGrammarOfferTheSameOptionWords)
{
    auto commands = GrammarCommands();
    for (auto [command, handler] : HandlerTables()) {
        SCOPED_TRACE(command);
        auto found = commands.find(command);
        if (found == commands.end())
            continue; // a word without grammar entry (checked above)
        Words grammar;
        GrammarWords(found->second, &grammar);
        for (const Difference &d : DIFFERENCES) {
            if (command != d.command)
                continue;
            bool in_grammar = grammar.count(d.word) != 0;
            bool in_handler = handler.count(d.word) != 0;
            bool holds = d.kind == Difference::HANDLER_ONLY  ? in_handler && !in_grammar
                         : d.kind == Difference::GRAMMAR_ONLY ? in_grammar && !in_handler
                                                              : in_grammar && in_handler &&
                                                                    grammar[d.word] != handler[d.word];
            EXPECT_TRUE(holds) << "listed difference no longer holds: " << d.word;
            grammar.erase(d.word);
            handler.erase(d.word);
        }
        EXPECT_EQ(handler, grammar) << "option words (and whether they take a value)";
    }
}

} // namespace
