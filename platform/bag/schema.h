/*
 * Schema files: the XDR data description language (struct, union with
 * default, enum, bool, optional data, strings, opaque data, fixed and
 * variable arrays, typedef, const, int/unsigned/hyper) with the added types
 * int8, uint8, int16, uint16 and ipv4addr, and bag declarations
 *
 *     bag <name> version <major>.<minor> = <struct type>;
 *
 * The language is described in docs/bags.md. parse_schema turns the text of
 * one file into a Schema whose types are fully resolved and checked, or
 * gives the first error as "file:line: expected ...". Each file has its own
 * names; nothing is shared between files except the bag names, which the
 * registry collects. A Schema never changes after parsing, so it may be
 * read from any number of threads.
 */
#ifndef TARVO_BAG_SCHEMA_H
#define TARVO_BAG_SCHEMA_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo_bag {

enum class Kind : uint8_t {
    Int8,
    UInt8,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Int64,
    UInt64,
    Bool,
    Enum,
    IPv4,
    String,      /* size = max length or BAG_UNBOUNDED */
    OpaqueFixed, /* size = byte count */
    OpaqueVar,   /* size = max length or BAG_UNBOUNDED */
    Struct,
    Union,
    Optional,   /* element */
    FixedArray, /* element, size = element count */
    VarArray,   /* element, size = max count or BAG_UNBOUNDED */
    Void,
    Named, /* a reference by name; none is left after parsing */
};

struct Type;

struct Field {
    std::string name; /* empty for void */
    Type *type = nullptr;
    int line = 0;
};

struct Arm {
    std::vector<int64_t> values; /* the case labels of this arm */
    Field field;
};

struct Type {
    Kind kind = Kind::Void;
    std::string name; /* declared name, or empty for an anonymous type */
    int line = 0;
    uint32_t size = 0;
    Type *element = nullptr;
    std::vector<std::pair<std::string, int32_t>> enumerators; /* Enum */
    std::vector<Field> fields;                                /* Struct */
    Field discriminant;                                       /* Union */
    std::vector<Arm> arms;                                    /* Union */
    bool has_default = false;                                 /* Union */
    bool default_reachable = false; /* some value reaches the default */
    int64_t default_value = 0;      /* the value written for the default */
    Field default_arm;              /* Union */
    std::string reference;          /* Named */
    uint64_t min_size = 0;          /* fewest body bytes a value takes */

    bool is_compound() const
    {
        return kind == Kind::Struct || kind == Kind::Union ||
               kind == Kind::FixedArray || kind == Kind::VarArray ||
               kind == Kind::Optional;
    }
    bool is_array() const
    {
        return kind == Kind::FixedArray || kind == Kind::VarArray;
    }
    /* Whether v is a value of this union discriminant or enum type. */
    bool accepts(int64_t v) const;
};

struct BagDeclaration {
    std::string name;
    int32_t major = 0;
    int32_t minor = 0;
    const Type *type = nullptr; /* always a Struct */
    int line = 0;
};

struct Schema {
    std::string file;
    std::deque<Type> types; /* owns every type; addresses are stable */
    std::map<std::string, Type *, std::less<>> type_names;
    std::map<std::string, int64_t, std::less<>> constants;
    std::vector<BagDeclaration> bags;
};

struct ParseResult {
    std::shared_ptr<const Schema> schema; /* null on error */
    std::string error;                    /* "file:line: expected ..." */
};

ParseResult parse_schema(std::string_view text, const std::string &file);

/* The token type a scalar kind yields (BAG_TOKEN_*), or -1 for compound
 * kinds. */
int token_type_of(Kind kind);

} // namespace tarvo_bag

#endif
