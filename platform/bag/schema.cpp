#include "schema.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "header.h"
#include "xdr.h"
#include "platform/bag.h"

namespace tarvo_bag {

namespace {

/* Thrown inside the parser only; parse_schema turns it into text. */
struct SchemaError {
    int line;
    std::string what;
};

[[noreturn]] void fail(int line, std::string what)
{
    throw SchemaError{line, std::move(what)};
}

enum class Tok { Ident, Number, Punct, End };

struct Token {
    Tok kind = Tok::End;
    std::string text;
    int line = 1;
};

std::string describe(const Token &t)
{
    switch (t.kind) {
    case Tok::End:
        return "the end of the file";
    case Tok::Number:
        return "the number " + t.text;
    default:
        return "'" + t.text + "'";
    }
}

class Lexer {
public:
    explicit Lexer(std::string_view text) : s_(text) {}

    Token next()
    {
        skip_blanks_and_comments();
        Token t;
        t.line = line_;
        if (pos_ >= s_.size())
            return t;
        unsigned char c = static_cast<unsigned char>(s_[pos_]);
        if (std::isalpha(c) || c == '_') {
            t.kind = Tok::Ident;
            t.text = take_word();
        } else if (std::isdigit(c)) {
            t.kind = Tok::Number;
            t.text = take_word();
        } else if (std::string_view("{}()[]<>;,:=*-.").find(char(c)) !=
                   std::string_view::npos) {
            t.kind = Tok::Punct;
            t.text = std::string(1, char(c));
            ++pos_;
        } else {
            fail(line_, "expected a name, a number or punctuation, found " +
                            printable(c));
        }
        return t;
    }

private:
    static std::string printable(unsigned char c)
    {
        if (std::isprint(c))
            return std::string("'") + char(c) + "'";
        char buf[16];
        snprintf(buf, sizeof buf, "byte 0x%02X", c);
        return buf;
    }

    std::string take_word()
    {
        std::size_t start = pos_;
        while (pos_ < s_.size() &&
               (std::isalnum(static_cast<unsigned char>(s_[pos_])) || s_[pos_] == '_'))
            ++pos_;
        return std::string(s_.substr(start, pos_ - start));
    }

    void skip_blanks_and_comments()
    {
        while (pos_ < s_.size()) {
            char c = s_[pos_];
            if (c == '\n') {
                ++line_;
                ++pos_;
            } else if (std::isspace(static_cast<unsigned char>(c))) {
                ++pos_;
            } else if (s_.substr(pos_, 2) == "//") {
                while (pos_ < s_.size() && s_[pos_] != '\n')
                    ++pos_;
            } else if (s_.substr(pos_, 2) == "/*") {
                int start_line = line_;
                pos_ += 2;
                while (pos_ < s_.size() && s_.substr(pos_, 2) != "*/") {
                    if (s_[pos_] == '\n')
                        ++line_;
                    ++pos_;
                }
                if (pos_ >= s_.size())
                    fail(start_line, "expected '*/' to end the comment");
                pos_ += 2;
            } else {
                return;
            }
        }
    }

    std::string_view s_;
    std::size_t pos_ = 0;
    int line_ = 1;
};

/* Words that can never name a type, a field or a constant. */
const std::set<std::string_view> KEYWORDS = {
    "bool",  "case",  "const",    "default",  "double", "enum",   "float",
    "hyper", "int",   "opaque",   "quadruple", "string", "struct", "switch",
    "typedef", "union", "unsigned", "void",   "int8",   "uint8",  "int16",
    "uint16", "ipv4addr"};

enum class DeclContext { Field, Arm, Typedef, Discriminant };

class Parser {
public:
    Parser(std::string_view text, Schema &schema) : lex_(text), s_(schema)
    {
        s_.constants.emplace("TRUE", 1);
        s_.constants.emplace("FALSE", 0);
        advance();
    }

    void parse_file()
    {
        while (cur_.kind != Tok::End)
            parse_definition();
    }

private:
    void advance() { cur_ = lex_.next(); }

    bool at_word(std::string_view w) const
    {
        return cur_.kind == Tok::Ident && cur_.text == w;
    }
    bool at_punct(char c) const
    {
        return cur_.kind == Tok::Punct && cur_.text[0] == c;
    }

    [[noreturn]] void expected(const std::string &what)
    {
        fail(cur_.line, "expected " + what + ", found " + describe(cur_));
    }

    void expect_punct(char c)
    {
        if (!at_punct(c))
            expected(std::string("'") + c + "'");
        advance();
    }

    void expect_word(std::string_view w)
    {
        if (!at_word(w))
            expected("'" + std::string(w) + "'");
        advance();
    }

    std::string expect_name(const std::string &what)
    {
        if (cur_.kind != Tok::Ident || KEYWORDS.count(cur_.text))
            expected(what);
        std::string name = cur_.text;
        advance();
        return name;
    }

    Type *new_type(Kind kind, int line)
    {
        Type &t = s_.types.emplace_back();
        t.kind = kind;
        t.line = line;
        return &t;
    }

    void check_new_name(const std::string &name, int line)
    {
        if (s_.type_names.count(name) || s_.constants.count(name))
            fail(line, "expected a new name, '" + name + "' is already defined");
    }

    void define_type(const std::string &name, Type *t, int line)
    {
        check_new_name(name, line);
        /* An anonymous enum, struct or union takes the typedef's name (it
         * shows as the enum type name of tokens). */
        if (t->name.empty() && (t->kind == Kind::Enum || t->kind == Kind::Struct ||
                                t->kind == Kind::Union))
            t->name = name;
        s_.type_names.emplace(name, t);
    }

    void define_constant(const std::string &name, int64_t v, int line)
    {
        check_new_name(name, line);
        s_.constants.emplace(name, v);
    }

    void parse_definition()
    {
        int line = cur_.line;
        if (at_word("typedef")) {
            advance();
            Field d = parse_declaration(DeclContext::Typedef);
            define_type(d.name, d.type, line);
        } else if (at_word("enum") || at_word("struct") || at_word("union")) {
            std::string keyword = cur_.text;
            advance();
            std::string name = expect_name("a type name");
            Type *t = new_type(keyword == "enum"     ? Kind::Enum
                               : keyword == "struct" ? Kind::Struct
                                                     : Kind::Union,
                               line);
            define_type(name, t, line);
            parse_body(t);
        } else if (at_word("const")) {
            advance();
            std::string name = expect_name("a constant name");
            expect_punct('=');
            int64_t v = parse_value();
            define_constant(name, v, line);
        } else if (at_word("bag")) {
            parse_bag();
        } else {
            expected("a definition (typedef, enum, struct, union, const or bag)");
        }
        expect_punct(';');
    }

    void parse_bag()
    {
        int line = cur_.line;
        advance();
        BagDeclaration bag;
        bag.name = expect_name("a bag name");
        bag.line = line;
        expect_word("version");
        bag.major = parse_version_number();
        expect_punct('.');
        bag.minor = parse_version_number();
        expect_punct('=');
        Type *ref = new_type(Kind::Named, cur_.line);
        ref->reference = expect_name("the name of a struct type");
        bag.type = ref;
        for (const auto &other : s_.bags)
            if (other.name == bag.name && other.major == bag.major &&
                other.minor == bag.minor)
                fail(line, "expected a new bag version, '" + bag.name +
                               "' version " + std::to_string(bag.major) + "." +
                               std::to_string(bag.minor) +
                               " is already declared");
        s_.bags.push_back(bag);
    }

    int32_t parse_version_number()
    {
        if (cur_.kind != Tok::Number ||
            !std::all_of(cur_.text.begin(), cur_.text.end(),
                         [](char c) { return c >= '0' && c <= '9'; }) ||
            cur_.text.size() > 10 || std::stoll(cur_.text) > INT32_MAX)
            expected("a decimal version number from 0 to 2147483647");
        int32_t v = int32_t(std::stoll(cur_.text));
        advance();
        return v;
    }

    /* A number literal (decimal, 0x hex, 0 octal), optionally negative, or
     * the name of a constant defined before. */
    int64_t parse_value()
    {
        bool negative = false;
        if (at_punct('-')) {
            negative = true;
            advance();
        }
        int64_t v = 0;
        if (cur_.kind == Tok::Number) {
            v = number_value(cur_);
        } else if (cur_.kind == Tok::Ident && !KEYWORDS.count(cur_.text)) {
            auto it = s_.constants.find(cur_.text);
            if (it == s_.constants.end())
                fail(cur_.line, "expected a constant defined before, found '" +
                                    cur_.text + "'");
            v = it->second;
        } else {
            expected("a number or a constant");
        }
        advance();
        return negative ? -v : v;
    }

    static int64_t number_value(const Token &t)
    {
        const std::string &s = t.text;
        int base = 10;
        std::size_t i = 0;
        if (s.size() > 1 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
            base = 16;
            i = 2;
            if (s.size() == 2)
                fail(t.line, "expected hex digits after 0x, found " + describe(t));
        } else if (s.size() > 1 && s[0] == '0') {
            base = 8;
            i = 1;
        }
        uint64_t v = 0;
        for (; i < s.size(); ++i) {
            int d = std::isdigit(static_cast<unsigned char>(s[i]))
                        ? s[i] - '0'
                        : std::isalpha(static_cast<unsigned char>(s[i]))
                              ? std::toupper(static_cast<unsigned char>(s[i])) - 'A' + 10
                              : 99;
            if (d >= base)
                fail(t.line, "expected a number, found '" + s + "'");
            if (v > (uint64_t(INT64_MAX) - uint64_t(d)) / uint64_t(base))
                fail(t.line, "expected a number below 2^63, found " + s);
            v = v * uint64_t(base) + uint64_t(d);
        }
        return int64_t(v);
    }

    /* Size inside [] (fixed: at least 1) or <> (maximum; empty means
     * unbounded). */
    uint32_t parse_size(bool fixed)
    {
        int line = cur_.line;
        if (!fixed && at_punct('>'))
            return BAG_UNBOUNDED;
        int64_t v = parse_value();
        if (fixed && (v < 1 || v > int64_t(MAX_BODY)))
            fail(line, "expected a fixed size from 1 to " +
                           std::to_string(MAX_BODY) + ", found " + std::to_string(v));
        if (!fixed && (v < 0 || v > int64_t(UINT32_MAX)))
            fail(line, "expected a maximum size from 0 to 4294967295, found " +
                           std::to_string(v));
        return uint32_t(v);
    }

    Type *scalar(Kind kind)
    {
        Type *&t = scalars_[int(kind)];
        if (t == nullptr)
            t = new_type(kind, 0);
        return t;
    }

    Type *parse_type_specifier()
    {
        int line = cur_.line;
        static const std::map<std::string, Kind, std::less<>> simple = {
            {"int", Kind::Int32},   {"hyper", Kind::Int64}, {"bool", Kind::Bool},
            {"int8", Kind::Int8},   {"uint8", Kind::UInt8}, {"int16", Kind::Int16},
            {"uint16", Kind::UInt16}, {"ipv4addr", Kind::IPv4}};
        if (cur_.kind != Tok::Ident)
            expected("a type");
        if (auto it = simple.find(cur_.text); it != simple.end()) {
            advance();
            return scalar(it->second);
        }
        if (at_word("unsigned")) {
            advance();
            if (at_word("hyper")) {
                advance();
                return scalar(Kind::UInt64);
            }
            if (at_word("int"))
                advance();
            return scalar(Kind::UInt32);
        }
        if (at_word("float") || at_word("double") || at_word("quadruple"))
            fail(line, "expected a type that bags can hold, found '" + cur_.text +
                           "' (floating-point types are not supported)");
        if (at_word("enum") || at_word("struct") || at_word("union")) {
            std::string keyword = cur_.text;
            advance();
            bool body = keyword == "union" ? at_word("switch") : at_punct('{');
            if (!body)
                return named(expect_name("a type name or a body"), line);
            Type *t = new_type(keyword == "enum"     ? Kind::Enum
                               : keyword == "struct" ? Kind::Struct
                                                     : Kind::Union,
                               line);
            parse_body(t);
            return t;
        }
        return named(expect_name("a type"), line);
    }

    Type *named(const std::string &name, int line)
    {
        Type *t = new_type(Kind::Named, line);
        t->reference = name;
        return t;
    }

    void parse_body(Type *t)
    {
        if (t->kind == Kind::Enum)
            parse_enum_body(t);
        else if (t->kind == Kind::Struct)
            parse_struct_body(t);
        else
            parse_union_body(t);
    }

    void parse_enum_body(Type *t)
    {
        expect_punct('{');
        int64_t next_value = 0;
        for (;;) {
            int line = cur_.line;
            std::string name = expect_name("an enumerator name");
            int64_t v = next_value;
            if (at_punct('=')) {
                advance();
                v = parse_value();
            }
            if (v < INT32_MIN || v > INT32_MAX)
                fail(line, "expected an enumerator value that fits in 32 bits, found " +
                               std::to_string(v));
            define_constant(name, v, line);
            t->enumerators.emplace_back(name, int32_t(v));
            next_value = v + 1;
            if (!at_punct(','))
                break;
            advance();
        }
        expect_punct('}');
    }

    void parse_struct_body(Type *t)
    {
        expect_punct('{');
        do {
            Field f = parse_declaration(DeclContext::Field);
            for (const Field &other : t->fields)
                if (other.name == f.name)
                    fail(f.line, "expected a new field name, '" + f.name +
                                     "' is already a field of this struct");
            t->fields.push_back(f);
            expect_punct(';');
        } while (!at_punct('}'));
        advance();
    }

    void parse_union_body(Type *t)
    {
        expect_word("switch");
        expect_punct('(');
        t->discriminant = parse_declaration(DeclContext::Discriminant);
        expect_punct(')');
        expect_punct('{');
        if (!at_word("case"))
            expected("'case'");
        while (at_word("case")) {
            Arm arm;
            while (at_word("case")) {
                advance();
                arm.values.push_back(parse_value());
                expect_punct(':');
            }
            arm.field = parse_declaration(DeclContext::Arm);
            expect_punct(';');
            t->arms.push_back(arm);
        }
        if (at_word("default")) {
            advance();
            expect_punct(':');
            t->has_default = true;
            t->default_arm = parse_declaration(DeclContext::Arm);
            expect_punct(';');
        }
        expect_punct('}');
    }

    Field parse_declaration(DeclContext ctx)
    {
        Field f;
        f.line = cur_.line;
        if (at_word("void")) {
            if (ctx != DeclContext::Arm)
                fail(f.line, "expected a declaration other than void "
                             "(void is allowed only as a union arm)");
            advance();
            f.type = scalar(Kind::Void);
            return f;
        }
        if (at_word("opaque") || at_word("string")) {
            bool is_string = cur_.text == "string";
            advance();
            f.name = expect_name("a name");
            if (!is_string && at_punct('[')) {
                advance();
                f.type = new_type(Kind::OpaqueFixed, f.line);
                f.type->size = parse_size(true);
                expect_punct(']');
            } else {
                if (!at_punct('<'))
                    expected(is_string ? "'<'" : "'[' or '<'");
                advance();
                f.type = new_type(is_string ? Kind::String : Kind::OpaqueVar, f.line);
                f.type->size = parse_size(false);
                expect_punct('>');
            }
            return check_context(f, ctx);
        }
        Type *base = parse_type_specifier();
        if (at_punct('*')) {
            advance();
            f.name = expect_name("a name");
            f.type = new_type(Kind::Optional, f.line);
            f.type->element = base;
            return check_context(f, ctx);
        }
        f.name = expect_name("a name");
        if (at_punct('[') || at_punct('<')) {
            bool fixed = at_punct('[');
            advance();
            f.type = new_type(fixed ? Kind::FixedArray : Kind::VarArray, f.line);
            f.type->element = base;
            f.type->size = parse_size(fixed);
            expect_punct(fixed ? ']' : '>');
        } else {
            f.type = base;
        }
        return check_context(f, ctx);
    }

    Field check_context(const Field &f, DeclContext ctx)
    {
        if (ctx == DeclContext::Discriminant && f.type->kind != Kind::Named &&
            f.type->kind != Kind::Int32 && f.type->kind != Kind::UInt32 &&
            f.type->kind != Kind::Bool && f.type->kind != Kind::Enum)
            fail(f.line, "expected int, unsigned int, bool or an enum as the "
                         "union discriminant");
        return f;
    }

    Lexer lex_;
    Token cur_;
    Schema &s_;
    Type *scalars_[int(Kind::Named) + 1] = {};
};

/* ---- Checks after parsing ---- */

class Resolver {
public:
    explicit Resolver(Schema &s) : s_(s) {}

    void run()
    {
        for (auto &entry : s_.type_names)
            resolve(entry.second);
        for (Type &t : s_.types)
            resolve_slots(t);
        for (BagDeclaration &bag : s_.bags) {
            Type *t = const_cast<Type *>(bag.type);
            resolve(t);
            if (t->kind != Kind::Struct)
                fail(bag.line, "expected a struct type for bag '" + bag.name +
                                   "', found '" + t->name + "'");
            bag.type = t;
        }
        for (Type &t : s_.types)
            if (t.kind == Kind::Union)
                check_union(t);
        for (Type &t : s_.types)
            check_containment(&t);
        for (Type &t : s_.types)
            min_size(&t);
        for (const BagDeclaration &bag : s_.bags)
            if (bag.type->min_size > MAX_BODY)
                fail(bag.line, "expected a bag type that fits in " +
                                   std::to_string(MAX_BODY) + " bytes, '" +
                                   bag.type->name + "' needs more");
    }

private:
    void resolve(Type *&slot)
    {
        int hops = 0;
        while (slot != nullptr && slot->kind == Kind::Named) {
            auto it = s_.type_names.find(slot->reference);
            if (it == s_.type_names.end()) {
                if (s_.constants.count(slot->reference))
                    fail(slot->line, "expected a type, '" + slot->reference +
                                         "' is a constant");
                fail(slot->line, "expected a type, '" + slot->reference +
                                     "' is not defined");
            }
            if (++hops > 64)
                fail(slot->line, "expected a type, '" + slot->reference +
                                     "' is defined in terms of itself");
            slot = it->second;
        }
    }

    void resolve_slots(Type &t)
    {
        resolve(t.element);
        for (Field &f : t.fields)
            resolve(f.type);
        for (Arm &a : t.arms)
            resolve(a.field.type);
        resolve(t.discriminant.type);
        resolve(t.default_arm.type);
    }

    void check_union(Type &u)
    {
        const Type *d = u.discriminant.type;
        if (d->kind != Kind::Int32 && d->kind != Kind::UInt32 &&
            d->kind != Kind::Bool && d->kind != Kind::Enum)
            fail(u.discriminant.line, "expected int, unsigned int, bool or an "
                                      "enum as the union discriminant");
        std::set<int64_t> seen;
        for (const Arm &arm : u.arms)
            for (int64_t v : arm.values) {
                if (!d->accepts(v))
                    fail(arm.field.line, "expected case values of the "
                                         "discriminant's type, found " +
                                             std::to_string(v));
                if (!seen.insert(v).second)
                    fail(arm.field.line, "expected distinct case values, " +
                                             std::to_string(v) + " appears twice");
            }
        if (!u.has_default)
            return;
        /* The default arm is written with the first value no case names. */
        std::vector<int64_t> candidates;
        if (d->kind == Kind::Enum)
            for (const auto &e : d->enumerators)
                candidates.push_back(e.second);
        else
            for (int64_t v = 0; v <= int64_t(seen.size()); ++v)
                candidates.push_back(v);
        for (int64_t v : candidates)
            if (d->accepts(v) && !seen.count(v)) {
                u.default_reachable = true;
                u.default_value = v;
                break;
            }
    }

    /* A type may contain itself only through optional data or a
     * variable-length array, which can end the recursion. */
    void check_containment(Type *t)
    {
        if (state_[t] == 2)
            return;
        if (state_[t] == 1)
            fail(t->line, "expected optional data ('*') or a variable-length "
                          "array where '" + (t->name.empty() ? "an anonymous type" : t->name) +
                          "' contains itself");
        state_[t] = 1;
        for (Type *inner : direct_parts(t))
            check_containment(inner);
        state_[t] = 2;
    }

    static std::vector<Type *> direct_parts(Type *t)
    {
        std::vector<Type *> parts;
        if (t->kind == Kind::Struct)
            for (Field &f : t->fields)
                parts.push_back(f.type);
        if (t->kind == Kind::Union) {
            for (Arm &a : t->arms)
                parts.push_back(a.field.type);
            if (t->has_default)
                parts.push_back(t->default_arm.type);
        }
        if (t->kind == Kind::FixedArray)
            parts.push_back(t->element);
        return parts;
    }

    uint64_t min_size(Type *t)
    {
        constexpr uint64_t CAP = uint64_t(1) << 40;
        if (done_.count(t))
            return t->min_size;
        uint64_t n = 0;
        switch (t->kind) {
        case Kind::Void:
            n = 0;
            break;
        case Kind::Int64:
        case Kind::UInt64:
            n = 8;
            break;
        case Kind::OpaqueFixed:
            n = pad4(t->size);
            break;
        case Kind::Struct:
            for (Field &f : t->fields)
                n = std::min(CAP, n + min_size(f.type));
            break;
        case Kind::Union: {
            uint64_t smallest = CAP;
            for (Arm &a : t->arms)
                smallest = std::min(smallest, min_size(a.field.type));
            if (t->has_default && t->default_reachable)
                smallest = std::min(smallest, min_size(t->default_arm.type));
            n = 4 + smallest;
            break;
        }
        case Kind::FixedArray:
            n = std::min(CAP, uint64_t(t->size) * min_size(t->element));
            break;
        default: /* every other kind is one word, or a count word */
            n = 4;
            break;
        }
        t->min_size = n;
        done_.insert(t);
        return n;
    }

    Schema &s_;
    std::map<const Type *, int> state_;
    std::set<const Type *> done_;
};

} // namespace

bool Type::accepts(int64_t v) const
{
    switch (kind) {
    case Kind::Int32:
        return v >= INT32_MIN && v <= INT32_MAX;
    case Kind::UInt32:
        return v >= 0 && v <= int64_t(UINT32_MAX);
    case Kind::Bool:
        return v == 0 || v == 1;
    case Kind::Enum:
        return std::any_of(enumerators.begin(), enumerators.end(),
                           [v](const auto &e) { return e.second == v; });
    default:
        return false;
    }
}

int token_type_of(Kind kind)
{
    switch (kind) {
    case Kind::Int8: return BAG_TOKEN_INT8;
    case Kind::UInt8: return BAG_TOKEN_UINT8;
    case Kind::Int16: return BAG_TOKEN_INT16;
    case Kind::UInt16: return BAG_TOKEN_UINT16;
    case Kind::Int32: return BAG_TOKEN_INT32;
    case Kind::UInt32: return BAG_TOKEN_UINT32;
    case Kind::Int64: return BAG_TOKEN_INT64;
    case Kind::UInt64: return BAG_TOKEN_UINT64;
    case Kind::Bool: return BAG_TOKEN_BOOL;
    case Kind::Enum: return BAG_TOKEN_ENUM;
    case Kind::IPv4: return BAG_TOKEN_INADDRT;
    case Kind::String: return BAG_TOKEN_STRING;
    case Kind::OpaqueFixed:
    case Kind::OpaqueVar: return BAG_TOKEN_OPAQUE;
    case Kind::Void: return BAG_TOKEN_VOID;
    default: return -1;
    }
}

ParseResult parse_schema(std::string_view text, const std::string &file)
{
    auto schema = std::make_shared<Schema>();
    schema->file = file;
    try {
        Parser parser(text, *schema);
        parser.parse_file();
        Resolver(*schema).run();
    } catch (const SchemaError &e) {
        return {nullptr, file + ":" + std::to_string(e.line) + ": " + e.what};
    }
    return {schema, {}};
}

} // namespace tarvo_bag
