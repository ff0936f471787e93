/*
 * The decoder: yields the tokens of a bag in order. An XDR body is walked
 * with the bag type's frames, the bytes deciding each step (union arms,
 * present optional data, array counts); a token-list body (encoding 2)
 * carries its tokens one record each and needs no schema. Every value is
 * checked against its type, every read against the end of the body, and
 * the number of tokens against the bag's length, so damaged bags give an
 * error code, never a crash or an endless walk. Errors are sticky.
 */
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "frames.h"
#include "header.h"
#include "platform/bag.h"
#include "registry.h"
#include "xdr.h"

struct bag_decoder_td {
    std::vector<uint8_t> body; /* a copy: the caller's bag may go away */
    tarvo_bag::XdrReader in{nullptr, 0};
    std::shared_ptr<const tarvo_bag::Schema> schema;
    std::vector<tarvo_bag::Frame> frames;
    bool token_list = false;
    uint32_t depth = 1;
    uint64_t tokens = 0;
    uint64_t max_tokens = 0;
    bool ended = false;
    int error = 0;
};

namespace tarvo_bag {

namespace {

/* Result of starting an item: a token was produced, or the walk goes on
 * (an array was entered), or an error code. */
constexpr int PRODUCED = 1;
constexpr int CONTINUE = 2;

class XdrWalker {
public:
    explicit XdrWalker(bag_decoder_td &d) : d_(d) {}

    int next(bag_token_td &tok)
    {
        for (;;) {
            if (d_.frames.empty()) {
                if (d_.in.remaining() != 0)
                    return BAG_ERR_CORRUPT; /* bytes after the last value */
                d_.ended = true;
                d_.depth = 0;
                tok.type = BAG_TOKEN_END;
                return PRODUCED;
            }
            int rc = step(tok);
            if (rc != CONTINUE)
                return rc;
        }
    }

private:
    int step(bag_token_td &tok)
    {
        Frame &top = d_.frames.back();
        switch (top.kind) {
        case FrameKind::Struct:
            if (top.index < top.type->fields.size()) {
                const Field &f = top.type->fields[top.index++];
                return start(tok, f.type, field_name(f), Role::Field);
            }
            break;
        case FrameKind::Union:
            if (top.index == 0) {
                top.index = 1;
                const Field &f = union_arm(top.type, top.arm);
                return start(tok, f.type, field_name(f), Role::Field);
            }
            break;
        case FrameKind::Optional:
            if (top.index == 0) {
                top.index = 1;
                return start(tok, top.type->element, top.name, Role::Field);
            }
            break;
        case FrameKind::Wrap:
            if (top.index == 0) {
                top.index = 1;
                return start_array(top.type, top.name);
            }
            break;
        case FrameKind::Array:
            if (top.index < top.limit) {
                top.index++;
                return start(tok, top.type->element, top.name, Role::Element);
            }
            break;
        }
        Frame done = top;
        d_.frames.pop_back();
        if (!done.scoped)
            return CONTINUE;
        d_.depth--;
        tok.type = BAG_TOKEN_END_SCOPE;
        return PRODUCED;
    }

    int push(const Frame &f)
    {
        if (d_.frames.size() >= MAX_FRAMES)
            return BAG_ERR_TOO_DEEP;
        d_.frames.push_back(f);
        return 0;
    }

    int open_scope(bag_token_td &tok, Frame f, const char *name)
    {
        if (d_.depth + 1 > MAX_DEPTH)
            return BAG_ERR_TOO_DEEP;
        f.scoped = true;
        if (int rc = push(f); rc != 0)
            return rc;
        d_.depth++;
        tok.type = BAG_TOKEN_BEGIN_SCOPE;
        tok.name = name;
        return PRODUCED;
    }

    int start(bag_token_td &tok, const Type *t, const char *name, Role role)
    {
        switch (t->kind) {
        case Kind::Struct:
            return open_scope(tok, Frame{FrameKind::Struct, t, name}, name);
        case Kind::Union:
            return start_union(tok, t, name);
        case Kind::Optional:
            return start_optional(tok, t, name);
        case Kind::FixedArray:
        case Kind::VarArray:
            if (role == Role::Element)
                return open_scope(tok, Frame{FrameKind::Wrap, t, name}, name);
            return start_array(t, name);
        default:
            tok.name = t->kind == Kind::Void ? nullptr : name;
            tok.type = uint32_t(token_type_of(t->kind));
            if (int rc = read_scalar(tok, t); rc != 0)
                return rc;
            return PRODUCED;
        }
    }

    int start_union(bag_token_td &tok, const Type *u, const char *name)
    {
        uint32_t raw = 0;
        if (!d_.in.get_u32(raw))
            return BAG_ERR_TRUNCATED;
        const Type *d = u->discriminant.type;
        int64_t v = d->kind == Kind::UInt32 ? int64_t(raw) : int64_t(int32_t(raw));
        if (!d->accepts(v))
            return BAG_ERR_CORRUPT;
        Frame f{FrameKind::Union, u, name};
        f.arm = uint32_t(u->arms.size());
        for (uint32_t i = 0; i < u->arms.size(); ++i)
            for (int64_t label : u->arms[i].values)
                if (label == v)
                    f.arm = i;
        if (f.arm == u->arms.size() && !u->has_default)
            return BAG_ERR_CORRUPT;
        if (int rc = push(f); rc != 0)
            return rc;
        tok.type = BAG_TOKEN_UNION_CHOICE;
        tok.name = name;
        tok.value.u32 = raw;
        return PRODUCED;
    }

    int start_optional(bag_token_td &tok, const Type *t, const char *name)
    {
        uint32_t present = 0;
        if (!d_.in.get_u32(present))
            return BAG_ERR_TRUNCATED;
        if (present > 1)
            return BAG_ERR_CORRUPT;
        if (present == 1)
            if (int rc = push(Frame{FrameKind::Optional, t, name}); rc != 0)
                return rc;
        tok.type = BAG_TOKEN_POINTER_CHOICE;
        tok.name = name;
        tok.value.u32 = present;
        return PRODUCED;
    }

    int start_array(const Type *array, const char *name)
    {
        Frame f{FrameKind::Array, array, name};
        f.limit = array->size;
        if (array->kind == Kind::VarArray) {
            if (!d_.in.get_u32(f.limit))
                return BAG_ERR_TRUNCATED;
            if (f.limit > array->size)
                return BAG_ERR_CORRUPT;
            /* Every element takes at least min_size bytes (never 0). */
            if (uint64_t(f.limit) * array->element->min_size > d_.in.remaining())
                return BAG_ERR_TRUNCATED;
        }
        if (int rc = push(f); rc != 0)
            return rc;
        return CONTINUE;
    }

    int read_scalar(bag_token_td &tok, const Type *t)
    {
        if (t->kind == Kind::Void)
            return 0;
        if (t->kind == Kind::Int64 || t->kind == Kind::UInt64)
            return d_.in.get_u64(tok.value.u64) ? 0 : BAG_ERR_TRUNCATED;
        if (t->kind == Kind::String || t->kind == Kind::OpaqueVar ||
            t->kind == Kind::OpaqueFixed)
            return read_bytes(tok, t);
        if (t->kind == Kind::IPv4) {
            const uint8_t *p = nullptr;
            bool padding_ok = false;
            if (!d_.in.get_bytes(4, &p, &padding_ok))
                return BAG_ERR_TRUNCATED;
            std::memcpy(&tok.value.u32, p, 4);
            return 0;
        }
        uint32_t raw = 0;
        if (!d_.in.get_u32(raw))
            return BAG_ERR_TRUNCATED;
        int32_t s = int32_t(raw);
        switch (t->kind) {
        case Kind::Int8:
            if (s < INT8_MIN || s > INT8_MAX)
                return BAG_ERR_CORRUPT;
            tok.value.i8 = int8_t(s);
            return 0;
        case Kind::UInt8:
            if (raw > UINT8_MAX)
                return BAG_ERR_CORRUPT;
            tok.value.u8 = uint8_t(raw);
            return 0;
        case Kind::Int16:
            if (s < INT16_MIN || s > INT16_MAX)
                return BAG_ERR_CORRUPT;
            tok.value.i16 = int16_t(s);
            return 0;
        case Kind::UInt16:
            if (raw > UINT16_MAX)
                return BAG_ERR_CORRUPT;
            tok.value.u16 = uint16_t(raw);
            return 0;
        case Kind::Bool:
            if (raw > 1)
                return BAG_ERR_CORRUPT;
            break;
        case Kind::Enum:
            if (!t->accepts(s))
                return BAG_ERR_CORRUPT;
            tok.type_name = t->name.empty() ? nullptr : t->name.c_str();
            break;
        default:
            break;
        }
        tok.value.u32 = raw;
        return 0;
    }

    int read_bytes(bag_token_td &tok, const Type *t)
    {
        uint32_t n = t->size;
        if (t->kind != Kind::OpaqueFixed) {
            if (!d_.in.get_u32(n))
                return BAG_ERR_TRUNCATED;
            if (n > t->size)
                return BAG_ERR_CORRUPT;
        }
        const uint8_t *p = nullptr;
        bool padding_ok = false;
        if (!d_.in.get_bytes(n, &p, &padding_ok))
            return BAG_ERR_TRUNCATED;
        if (!padding_ok)
            return BAG_ERR_CORRUPT;
        tok.max_length = t->size;
        if (t->kind == Kind::String) {
            if (std::memchr(p, 0, n) != nullptr)
                return BAG_ERR_CORRUPT;
            return copy_string(tok, p, n);
        }
        tok.min_length = t->kind == Kind::OpaqueFixed ? int32_t(t->size) : 0;
        return copy_opaque(tok, p, n);
    }

public:
    static int copy_string(bag_token_td &tok, const uint8_t *p, uint32_t n)
    {
        char *s = static_cast<char *>(std::malloc(std::size_t(n) + 1));
        if (s == nullptr)
            return BAG_ERR_NO_MEMORY;
        std::memcpy(s, p, n);
        s[n] = '\0';
        tok.value.string = s;
        tok.flags |= FLAG_OWNS_STRING;
        return 0;
    }

    static int copy_opaque(bag_token_td &tok, const uint8_t *p, uint32_t n)
    {
        void *bytes = std::malloc(n > 0 ? n : 1);
        if (bytes == nullptr)
            return BAG_ERR_NO_MEMORY;
        if (n > 0)
            std::memcpy(bytes, p, n);
        tok.value.u32 = n;
        tok.opaque = bytes;
        tok.flags |= FLAG_OWNS_OPAQUE;
        return 0;
    }

private:
    bag_decoder_td &d_;
};

/* Token-list body: records of (type, name as string<255>, value as
 * opaque<>) up to the end record; see docs/bags.md. */
class TokenListWalker {
public:
    explicit TokenListWalker(bag_decoder_td &d) : d_(d) {}

    int next(bag_token_td &tok)
    {
        uint32_t type = 0, name_length = 0, value_length = 0;
        const uint8_t *name = nullptr, *value = nullptr;
        bool padding_ok = false, value_padding_ok = false;
        if (!d_.in.get_u32(type) || !d_.in.get_u32(name_length))
            return BAG_ERR_TRUNCATED;
        if (name_length > BAG_MAX_TYPE_NAME)
            return BAG_ERR_CORRUPT;
        if (!d_.in.get_bytes(name_length, &name, &padding_ok) ||
            !d_.in.get_u32(value_length) ||
            !d_.in.get_bytes(value_length, &value, &value_padding_ok))
            return BAG_ERR_TRUNCATED;
        if (!padding_ok || !value_padding_ok || std::memchr(name, 0, name_length))
            return BAG_ERR_CORRUPT;
        tok.type = type;
        if (int rc = take_value(tok, value, value_length); rc != 0)
            return rc;
        if (name_length > 0) {
            bag_token_td named{};
            if (XdrWalker::copy_string(named, name, name_length) != 0)
                return BAG_ERR_NO_MEMORY;
            tok.name = named.value.string;
            tok.flags |= FLAG_OWNS_NAME;
        }
        return PRODUCED;
    }

private:
    static uint32_t value_width(uint32_t type)
    {
        switch (type) {
        case BAG_TOKEN_INT64:
        case BAG_TOKEN_UINT64:
            return 8;
        case BAG_TOKEN_VOID:
        case BAG_TOKEN_BEGIN_SCOPE:
        case BAG_TOKEN_END_SCOPE:
        case BAG_TOKEN_END:
        case BAG_TOKEN_LINKED_LIST:
            return 0;
        default:
            return 4;
        }
    }

    int take_value(bag_token_td &tok, const uint8_t *v, uint32_t n)
    {
        uint32_t type = tok.type;
        if (type == BAG_TOKEN_STRING) {
            if (std::memchr(v, 0, n) != nullptr)
                return BAG_ERR_CORRUPT;
            tok.max_length = BAG_UNBOUNDED;
            return XdrWalker::copy_string(tok, v, n);
        }
        if (type == BAG_TOKEN_OPAQUE) {
            tok.max_length = BAG_UNBOUNDED;
            return XdrWalker::copy_opaque(tok, v, n);
        }
        if (type > BAG_TOKEN_LINKED_LIST)
            return 0; /* a token this library does not know: passed on bare */
        if (n != value_width(type))
            return BAG_ERR_CORRUPT;
        return track_depth(tok, v, n);
    }

    int track_depth(bag_token_td &tok, const uint8_t *v, uint32_t n)
    {
        switch (tok.type) {
        case BAG_TOKEN_BEGIN_SCOPE:
            if (d_.depth + 1 > MAX_DEPTH)
                return BAG_ERR_TOO_DEEP;
            d_.depth++;
            return 0;
        case BAG_TOKEN_END_SCOPE:
            if (d_.depth <= 1)
                return BAG_ERR_CORRUPT;
            d_.depth--;
            return 0;
        case BAG_TOKEN_END:
            if (d_.depth != 1 || d_.in.remaining() != 0)
                return BAG_ERR_CORRUPT;
            d_.ended = true;
            return 0;
        case BAG_TOKEN_INADDRT:
            std::memcpy(&tok.value.u32, v, 4);
            return 0;
        default:
            if (n == 8)
                tok.value.u64 = uint64_t(load_u32(v)) << 32 | load_u32(v + 4);
            else if (n == 4)
                store_by_width(tok, load_u32(v));
            return 0;
        }
    }

    static void store_by_width(bag_token_td &tok, uint32_t raw)
    {
        switch (tok.type) {
        case BAG_TOKEN_INT8:
        case BAG_TOKEN_UINT8:
            tok.value.u8 = uint8_t(raw);
            break;
        case BAG_TOKEN_INT16:
        case BAG_TOKEN_UINT16:
            tok.value.u16 = uint16_t(raw);
            break;
        default:
            tok.value.u32 = raw;
            break;
        }
    }

    bag_decoder_td &d_;
};

} // namespace

namespace {

/* The registry lookup is the caller's: null `given` means the global one. */
int start_decoder(const RegisteredBag *given, const bag_td *bag, uint32_t length,
                  bag_generic_h_td *handle)
{
    if (bag == nullptr || handle == nullptr)
        return BAG_ERR_BAD_ARGUMENT;
    *handle = nullptr;
    const auto *bytes = reinterpret_cast<const uint8_t *>(bag);
    Header header;
    if (int rc = parse_header(bytes, length, header); rc != 0)
        return rc;
    if (header.body_length > MAX_BODY)
        return BAG_ERR_CORRUPT;
    std::unique_ptr<bag_decoder_td> d(new (std::nothrow) bag_decoder_td);
    if (!d)
        return BAG_ERR_NO_MEMORY;
    if (header.encoding == BAG_ENCODING_XDR) {
        const RegisteredBag *registered = given;
        if (registered == nullptr) {
            int rc = Registry::global().find(header.type_name, header.major,
                                             header.minor, &registered);
            if (rc != 0)
                return rc;
        }
        d->schema = registered->schema;
        d->frames.push_back(
            Frame{FrameKind::Struct, registered->declaration->type, nullptr});
    } else if (header.encoding == ENCODING_TOKEN_LIST) {
        d->token_list = true;
    } else {
        return BAG_ERR_BAD_HEADER; /* an encoding this library cannot read */
    }
    d->body.assign(bytes + header.body_offset,
                   bytes + header.body_offset + header.body_length);
    d->in = XdrReader(d->body.data(), d->body.size());
    d->max_tokens = length;
    *handle = d.release();
    return 0;
}

} // namespace

int decode_init_registered(const RegisteredBag &bag, const bag_td *data,
                           uint32_t length, bag_generic_h_td *handle)
{
    return start_decoder(&bag, data, length, handle);
}

} // namespace tarvo_bag

using namespace tarvo_bag;

extern "C" int bag_generic_init(const bag_td *bag, uint32_t length,
                                bag_generic_h_td *handle)
{
    return start_decoder(nullptr, bag, length, handle);
}

extern "C" int bag_generic_token(bag_generic_h_td *handle, bag_token_td *token)
{
    if (handle == nullptr || *handle == nullptr || token == nullptr)
        return BAG_ERR_BAD_ARGUMENT;
    bag_decoder_td &d = **handle;
    *token = bag_token_td{};
    if (d.error != 0)
        return d.error;
    if (d.ended)
        return BAG_ERR_END_OF_BAG;
    int rc = BAG_ERR_CORRUPT; /* more tokens than bytes */
    if (++d.tokens <= d.max_tokens)
        rc = d.token_list ? TokenListWalker(d).next(*token) : XdrWalker(d).next(*token);
    if (rc == PRODUCED)
        return 0;
    bag_generic_free_token_allocations(token);
    *token = bag_token_td{};
    d.error = rc;
    return rc;
}

extern "C" void bag_generic_free_token_allocations(bag_token_td *token)
{
    if (token == nullptr)
        return;
    if (token->flags & FLAG_OWNS_STRING) {
        std::free(token->value.string);
        token->value.string = nullptr;
    }
    if (token->flags & FLAG_OWNS_OPAQUE) {
        std::free(token->opaque);
        token->opaque = nullptr;
    }
    if (token->flags & FLAG_OWNS_NAME) {
        std::free(const_cast<char *>(token->name));
        token->name = nullptr;
    }
    token->flags &= ~(FLAG_OWNS_STRING | FLAG_OWNS_OPAQUE | FLAG_OWNS_NAME);
}

extern "C" void bag_generic_destroy(bag_generic_h_td *handle)
{
    if (handle == nullptr)
        return;
    delete *handle;
    *handle = nullptr;
}

static_assert(sizeof(bag_token_td) == 72);
static_assert(offsetof(bag_token_td, value) == 8);
static_assert(offsetof(bag_token_td, opaque) == 16);
static_assert(offsetof(bag_token_td, min_length) == 24);
static_assert(offsetof(bag_token_td, max_length) == 28);
static_assert(offsetof(bag_token_td, name) == 56);
static_assert(offsetof(bag_token_td, type_name) == 64);
