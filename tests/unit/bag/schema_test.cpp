/* The schema language: what a file declares, and the first error of a bad
 * file as "file:line: expected ...". */
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/bag.h"
#include "registry.h"
#include "schema.h"
#include "test_helpers.h"

using tarvo_bag::Kind;
using tarvo_bag::parse_schema;

namespace {

struct ErrorCase {
    const char *text;
    const char *error;
};

const ErrorCase ERROR_CASES[] = {
    {"struct a { int x; }", "t.x:1: expected ';', found the end of the file"},
    {"struct a { int x };", "t.x:1: expected ';', found '}'"},
    {"/*\n\n*/\nstruct a { int x }", "t.x:4: expected ';', found '}'"},
    {"foo;", "t.x:1: expected a definition (typedef, enum, struct, union, const or bag), found 'foo'"},
    {"struct a {\n  float f;\n};",
     "t.x:2: expected a type that bags can hold, found 'float' (floating-point types are not supported)"},
    {"struct a { double d; };",
     "t.x:1: expected a type that bags can hold, found 'double' (floating-point types are not supported)"},
    {"struct a {\n int x;\n foo y;\n};", "t.x:3: expected a type, 'foo' is not defined"},
    {"const C = 1;\nstruct a { C y; };", "t.x:2: expected a type, 'C' is a constant"},
    {"struct a { int x; a inner; };",
     "t.x:1: expected optional data ('*') or a variable-length array where 'a' contains itself"},
    {"struct a { b x[2]; };\nunion b switch (int k) { case 0: a back; };",
     "t.x:1: expected optional data ('*') or a variable-length array where 'a' contains itself"},
    {"const A = 1;\nconst A = 2;", "t.x:2: expected a new name, 'A' is already defined"},
    {"enum e { A, B };\nstruct A { int x; };", "t.x:2: expected a new name, 'A' is already defined"},
    {"struct a { int x;\n int x; };", "t.x:2: expected a new field name, 'x' is already a field of this struct"},
    {"union u switch (string s<>) { case 0: int a; };",
     "t.x:1: expected int, unsigned int, bool or an enum as the union discriminant"},
    {"struct s { int a; };\nunion u switch (s k) { case 0: int a; };",
     "t.x:2: expected int, unsigned int, bool or an enum as the union discriminant"},
    {"union u switch (int k) {\ncase 1: int a;\ncase 1: int b;\n};",
     "t.x:3: expected distinct case values, 1 appears twice"},
    {"enum e { A = 1 };\nunion u switch (e k) { case 2: int a; };",
     "t.x:2: expected case values of the discriminant's type, found 2"},
    {"union u switch (bool b) { case 2: int a; };",
     "t.x:1: expected case values of the discriminant's type, found 2"},
    {"union u switch (unsigned k) { case -1: int a; };",
     "t.x:1: expected case values of the discriminant's type, found -1"},
    {"union u switch (int k) { };", "t.x:1: expected 'case', found '}'"},
    {"struct a { int x[0]; };", "t.x:1: expected a fixed size from 1 to 16777216, found 0"},
    {"struct a { opaque x[16777217]; };",
     "t.x:1: expected a fixed size from 1 to 16777216, found 16777217"},
    {"struct a { int x<-1>; };", "t.x:1: expected a maximum size from 0 to 4294967295, found -1"},
    {"struct a { string s[4]; };", "t.x:1: expected '<', found '['"},
    {"struct a { opaque o; };", "t.x:1: expected '[' or '<', found ';'"},
    {"struct a { void; };", "t.x:1: expected a declaration other than void (void is allowed only as a union arm)"},
    {"struct a { int case; };", "t.x:1: expected a name, found 'case'"},
    {"bag b version 1.0 = nothing;", "t.x:1: expected a type, 'nothing' is not defined"},
    {"enum e { A };\nbag b version 1.0 = e;", "t.x:2: expected a struct type for bag 'b', found 'e'"},
    {"struct s { int x; };\nbag b version 1.x = s;",
     "t.x:2: expected a decimal version number from 0 to 2147483647, found 'x'"},
    {"struct s { int x; };\nbag b version 0x1.0 = s;",
     "t.x:2: expected a decimal version number from 0 to 2147483647, found the number 0x1"},
    {"struct s { int x; };\nbag b version 2147483648.0 = s;",
     "t.x:2: expected a decimal version number from 0 to 2147483647, found the number 2147483648"},
    {"struct s { int x; };\nbag b 1.0 = s;", "t.x:2: expected 'version', found the number 1"},
    {"struct s { int x; };\nbag b version 1.0 = s;\nbag b version 1.0 = s;",
     "t.x:3: expected a new bag version, 'b' version 1.0 is already declared"},
    {"typedef a b;\ntypedef b a;\nstruct s { a x; };", "t.x:1: expected a type, 'a' is defined in terms of itself"},
    {"struct big { opaque x[16777216]; opaque y[16]; };\nbag b version 1.0 = big;",
     "t.x:2: expected a bag type that fits in 16777216 bytes, 'big' needs more"},
    {"/* never closed", "t.x:1: expected '*/' to end the comment"},
    {"struct a { int x; };\n$", "t.x:2: expected a name, a number or punctuation, found '$'"},
    {"const A = 0x;", "t.x:1: expected hex digits after 0x, found the number 0x"},
    {"const A = 09;", "t.x:1: expected a number, found '09'"},
    {"const A = 99999999999999999999;", "t.x:1: expected a number below 2^63, found 99999999999999999999"},
    {"const A = B;", "t.x:1: expected a constant defined before, found 'B'"},
    {"enum e { A = 4294967296 };", "t.x:1: expected an enumerator value that fits in 32 bits, found 4294967296"},
    {"struct a { int x; }; // fine\nstruct b { int y; }\n", "t.x:3: expected ';', found the end of the file"},
};

TEST(SchemaParser, FirstErrorNamesFileLineAndWhatWasExpected)
{
    for (const ErrorCase &c : ERROR_CASES) {
        auto result = parse_schema(c.text, "t.x");
        EXPECT_EQ(result.schema, nullptr) << c.text;
        EXPECT_EQ(result.error, c.error) << c.text;
    }
}

TEST(SchemaParser, ResolvesTypesConstantsAndDefaults)
{
    const char *text = R"(
        const MAX = 0x10;
        const NEG = -010;
        typedef enum { OFF, ON = 7, AFTER } power;
        typedef power power_alias;
        typedef string label<MAX>;
        union u switch (power_alias p) {
        case OFF: case AFTER: label l;
        case ON: void;
        };
        union w switch (int k) { case 0: case 1: int a; case 3: void; default: hyper h; };
        struct node { unsigned value; node *next; u choice; w other; int list<>; };
        bag nodes version 3.12 = node;
    )";
    auto result = parse_schema(text, "t.x");
    ASSERT_NE(result.schema, nullptr) << result.error;
    const tarvo_bag::Schema &s = *result.schema;
    EXPECT_EQ(s.constants.at("MAX"), 16);
    EXPECT_EQ(s.constants.at("NEG"), -8);
    EXPECT_EQ(s.constants.at("AFTER"), 8);

    ASSERT_EQ(s.bags.size(), 1u);
    EXPECT_EQ(s.bags[0].name, "nodes");
    EXPECT_EQ(s.bags[0].major, 3);
    EXPECT_EQ(s.bags[0].minor, 12);
    const tarvo_bag::Type *node = s.bags[0].type;
    ASSERT_EQ(node->kind, Kind::Struct);
    ASSERT_EQ(node->fields.size(), 5u);
    EXPECT_EQ(node->fields[0].type->kind, Kind::UInt32);
    EXPECT_EQ(node->fields[1].type->kind, Kind::Optional);
    EXPECT_EQ(node->fields[1].type->element, node);
    EXPECT_EQ(node->fields[4].type->size, BAG_UNBOUNDED);

    const tarvo_bag::Type *u = node->fields[2].type;
    ASSERT_EQ(u->kind, Kind::Union);
    EXPECT_EQ(u->discriminant.type->name, "power"); /* the typedef names it */
    EXPECT_EQ(u->arms[0].values, (std::vector<int64_t>{0, 8}));
    EXPECT_EQ(u->arms[0].field.type->kind, Kind::String);
    EXPECT_EQ(u->arms[0].field.type->size, 16u);
    EXPECT_FALSE(u->has_default);

    const tarvo_bag::Type *w = node->fields[3].type;
    EXPECT_TRUE(w->default_reachable);
    EXPECT_EQ(w->default_value, 2); /* the first value no case names */
    /* union w: 4 for the discriminant + the void arm */
    EXPECT_EQ(w->min_size, 4u);
    /* value + absent next + u (discriminant, void arm) + w + empty list */
    EXPECT_EQ(node->min_size, 4u + 4 + 4 + 4 + 4);
}

TEST(SchemaParser, DefaultArmIsOfferedOnlyWhenSomeValueReachesIt)
{
    struct Case {
        const char *text;
        bool reachable;
        int64_t value;
    } cases[] = {
        {"union u switch (bool b) { case TRUE: int a; default: void; };", true, 0},
        {"union u switch (bool b) { case TRUE: int a; case FALSE: void; default: int c; };", false, 0},
        {"enum e { X = 3, Y = 9 }; union u switch (e k) { case X: int a; default: void; };", true, 9},
        {"enum e { X = 3 }; union u switch (e k) { case X: int a; default: void; };", false, 0},
        {"union u switch (unsigned k) { case 0: case 2: int a; default: void; };", true, 1},
    };
    for (const Case &c : cases) {
        auto result = parse_schema(c.text, "t.x");
        ASSERT_NE(result.schema, nullptr) << result.error;
        const tarvo_bag::Type *u = result.schema->type_names.at("u");
        EXPECT_EQ(u->default_reachable, c.reachable) << c.text;
        if (c.reachable) {
            EXPECT_EQ(u->default_value, c.value) << c.text;
        }
    }
}

TEST(SchemaParser, SampleSchemasLoadWithoutDiagnostics)
{
    auto registry = tarvo_bag::Registry::load(TARVO_BAG_SAMPLE_SCHEMAS);
    EXPECT_EQ(registry->diagnostics(), "");
    EXPECT_GE(registry->all().size(), 3u);
    /* The global registry reads the unit schemas and the samples. */
    EXPECT_EQ(bag_schema_diagnostics(), nullptr);
}

/* XDR files written elsewhere for other tools (the system's RPC protocol
 * definitions, installed with the build's packages) carry RPC program
 * blocks and code-generator lines that bags do not have. Each file is read
 * whole or refused at its first fault with the file, a line that holds the
 * token named, and what was expected there. */
TEST(SchemaParser, SystemRpcDefinitionsAreReadOrRefusedAtTheirFault)
{
    const std::filesystem::path folder = "/usr/include/rpcsvc";
    ASSERT_TRUE(std::filesystem::is_directory(folder)) << "package rpcsvc-proto missing";
    int files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".x")
            continue;
        ++files;
        const std::string file = entry.path().string();
        SCOPED_TRACE(file);
        std::ifstream in(file);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        std::string text;
        for (const std::string &line : lines)
            text += line + "\n";

        auto result = parse_schema(text, file);
        if (result.schema != nullptr) {
            EXPECT_EQ(result.error, "");
            continue;
        }
        /* "<file>:<line>: expected ..., found '<token>'" */
        ASSERT_EQ(result.error.rfind(file + ":", 0), 0u) << result.error;
        std::size_t at = file.size() + 1;
        std::size_t colon = result.error.find(": expected ", at);
        ASSERT_NE(colon, std::string::npos) << result.error;
        const unsigned long line = std::stoul(result.error.substr(at, colon - at));
        ASSERT_GE(line, 1u);
        ASSERT_LE(line, lines.size());
        std::size_t found = result.error.find(", found '");
        ASSERT_NE(found, std::string::npos) << result.error;
        const std::string token = result.error.substr(
            found + 9, result.error.find('\'', found + 9) - (found + 9));
        EXPECT_NE(lines[line - 1].find(token), std::string::npos)
            << result.error << "\nline " << line << ": " << lines[line - 1];
    }
    EXPECT_GE(files, 10);
}

/* ---- Registry ---- */

class RegistryTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(path("a"));
        std::filesystem::create_directories(path("b"));
    }
    void write(const std::string &rel, const std::string &text) { std::ofstream(path(rel)) << text; }
    std::string path(const std::string &rel) const { return root_.path() + "/" + rel; }

    tarvo::test::TempDir root_{"bagreg"};
};

TEST_F(RegistryTest, BadFilesAndDuplicatesNeverStopOtherFiles)
{
    write("a/one.x", "struct s { int x; };\nbag x version 1.0 = s;\n");
    write("a/bad.x", "struct s { int };\nbag broken version 1.0 = s;\n");
    write("a/notes.txt", "this is not a schema");
    write("b/one.x", "garbage that is shadowed by a/one.x");
    write("b/two.x", "struct t { int y; };\nbag y version 1.0 = t;\nbag x version 1.0 = t;\n");

    auto registry = tarvo_bag::Registry::load("::" + path("a") + ":" + path("missing") +
                                              ":" + path("b") + ":");
    const tarvo_bag::RegisteredBag *bag = nullptr;
    ASSERT_EQ(registry->find("x", 1, 0, &bag), 0);
    EXPECT_EQ(bag->schema->file, path("a/one.x"));
    ASSERT_EQ(registry->find("y", 1, 0, &bag), 0);
    EXPECT_EQ(registry->find("broken", 1, 0, &bag), BAG_ERR_TYPE_NOT_REGISTERED);
    EXPECT_EQ(registry->find("x", 1, 1, &bag), BAG_ERR_VERSION);
    EXPECT_EQ(registry->find("x", -1, 0, &bag), BAG_ERR_VERSION);
    EXPECT_EQ(registry->find("w", 1, 0, &bag), BAG_ERR_TYPE_NOT_REGISTERED);
    EXPECT_EQ(registry->find("", 1, 0, &bag), BAG_ERR_TYPE_NOT_REGISTERED);

    EXPECT_EQ(registry->diagnostics(),
              path("a/bad.x") + ":1: expected a name, found '}'\n" + path("b/two.x") +
                  ":3: expected a new bag version, 'x' version 1.0 is already declared in " +
                  path("a/one.x") + ":2\n");
    EXPECT_EQ(registry->all().size(), 2u);
}

TEST_F(RegistryTest, EmptyPathRegistersNothing)
{
    auto registry = tarvo_bag::Registry::load("");
    EXPECT_TRUE(registry->all().empty());
    EXPECT_EQ(registry->diagnostics(), "");
}

} // namespace
