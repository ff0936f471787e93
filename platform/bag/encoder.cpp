/*
 * The encoder: a bag is built token by token. Each context is an immutable
 * position: the frame stack, the body bytes written so far and the scope
 * depth. The tokens allowed next are found by walking the frames from that
 * position (Explorer); steps that write nothing of their own (entering an
 * array, ending a variable-length array, leaving an unscoped frame) are
 * followed until a token is reached, and the bytes they write are kept with
 * the alternative as operations to apply when it is taken. Because a
 * variable-length array may end at any point, several paths can be open at
 * once, which is how the end of the bag comes to be offered together with
 * another element of a trailing array.
 */
#include <atomic>
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

struct bag_encoder_td {
    std::shared_ptr<const tarvo_bag::Schema> schema;
    const tarvo_bag::BagDeclaration *declaration = nullptr;
};

struct bag_encode_context_td {
    std::shared_ptr<const tarvo_bag::Schema> schema;
    const tarvo_bag::BagDeclaration *declaration = nullptr;
    std::vector<tarvo_bag::Frame> frames;
    std::vector<uint8_t> body;
    uint32_t depth = 1;
    uint64_t tokens = 0;
    bool ended = false;
    uint64_t serial = 0; /* tells this context's choices from others' */
};

namespace tarvo_bag {

namespace {

/* Upper bound of alternatives and walking steps for one position; real
 * schemas stay far below it. */
constexpr std::size_t MAX_STEPS = 100000;

uint64_t next_serial()
{
    static std::atomic<uint64_t> serial{1};
    return serial.fetch_add(1);
}

struct Op {
    uint32_t offset;
    uint32_t value;
    bool patch; /* false: append a count word (zero for now) */
};

struct Alt {
    bag_token_td token{};
    std::vector<Frame> frames;
    std::vector<Op> ops;
    uint32_t depth = 0;
    const Type *type = nullptr;
};

bag_token_td make_token(uint32_t type, const char *name)
{
    bag_token_td t{};
    t.type = type;
    t.name = name;
    return t;
}

class Explorer {
public:
    /* 0 with the alternatives, or BAG_ERR_TOO_DEEP when nesting limits cut
     * every path. */
    int run(const bag_encode_context_td &ctx, std::vector<Alt> &alts)
    {
        alts_ = &alts;
        Frames frames = ctx.frames;
        Ops ops;
        explore(frames, ops, ctx.body.size(), ctx.depth);
        if (alts.empty())
            return BAG_ERR_TOO_DEEP;
        if (steps_ > MAX_STEPS) {
            alts.clear();
            return BAG_ERR_TOO_DEEP;
        }
        for (std::size_t i = 0; i < alts.size(); ++i)
            alts[i].token.flags = FLAG_CHOICE | uint32_t(i);
        return 0;
    }

private:
    using Frames = std::vector<Frame>;
    using Ops = std::vector<Op>;

    void add(const bag_token_td &token, const Frames &frames, const Ops &ops,
             uint32_t depth, const Type *type)
    {
        Alt alt;
        alt.token = token;
        alt.frames = frames;
        alt.ops = ops;
        alt.depth = depth;
        alt.type = type;
        alts_->push_back(std::move(alt));
    }

    bool over_budget() { return ++steps_ > MAX_STEPS; }

    /* The walk from a position. It takes over `frames` and `ops` (copies
     * are made only where paths part), so that leaving many unscoped frames
     * in a row costs no copying. */
    void explore(Frames &frames, Ops &ops, std::size_t size, uint32_t depth)
    {
        if (over_budget())
            return;
        if (frames.empty()) {
            add(make_token(BAG_TOKEN_END, nullptr), frames, ops, depth, nullptr);
            return;
        }
        if (frames.size() > MAX_FRAMES)
            return;
        Frame &top = frames.back();
        switch (top.kind) {
        case FrameKind::Struct:
            if (top.index < top.type->fields.size()) {
                const Field &f = top.type->fields[top.index++];
                start(frames, ops, size, depth, f.type, field_name(f), Role::Field);
                return;
            }
            break;
        case FrameKind::Union:
            if (top.index == 0) {
                top.index = 1;
                const Field &f = union_arm(top.type, top.arm);
                start(frames, ops, size, depth, f.type, field_name(f), Role::Field);
                return;
            }
            break;
        case FrameKind::Optional:
            if (top.index == 0) {
                top.index = 1;
                start(frames, ops, size, depth, top.type->element, top.name,
                      Role::Field);
                return;
            }
            break;
        case FrameKind::Wrap:
            if (top.index == 0) {
                top.index = 1;
                start_array(frames, ops, size, depth, top.type, top.name);
                return;
            }
            break;
        case FrameKind::Array:
            explore_array(frames, ops, size, depth);
            return;
        }
        finish(frames, ops, size, depth);
    }

    void explore_array(Frames &frames, Ops &ops, std::size_t size, uint32_t depth)
    {
        Frame &top = frames.back();
        const Type *array = top.type;
        if (array->kind == Kind::FixedArray) {
            if (top.index < array->size) {
                top.index++;
                start(frames, ops, size, depth, array->element, top.name, Role::Element);
            } else {
                finish(frames, ops, size, depth);
            }
            return;
        }
        if (top.index < array->size) { /* another element */
            Frames more = frames;
            Ops more_ops = ops;
            more.back().index++;
            start(more, more_ops, size, depth, top.type->element, top.name, Role::Element);
        }
        /* or the array ends here: its count word gets the element count */
        Op patch{frames.back().count_offset, frames.back().index, true};
        frames.pop_back();
        ops.push_back(patch);
        explore(frames, ops, size, depth);
    }

    void finish(Frames &frames, Ops &ops, std::size_t size, uint32_t depth)
    {
        Frame done = frames.back();
        frames.pop_back();
        if (done.scoped)
            add(make_token(BAG_TOKEN_END_SCOPE, nullptr), frames, ops, depth - 1, nullptr);
        else
            explore(frames, ops, size, depth);
    }

    void start(Frames &frames, Ops &ops, std::size_t size, uint32_t depth,
               const Type *t, const char *name, Role role)
    {
        int type = token_type_of(t->kind);
        if (type >= 0) {
            add(scalar_token(t, uint32_t(type), name), frames, ops, depth, t);
            return;
        }
        switch (t->kind) {
        case Kind::Struct:
            open_scope(frames, ops, depth, Frame{FrameKind::Struct, t, name}, name);
            break;
        case Kind::Union:
            start_union(frames, ops, depth, t, name);
            break;
        case Kind::Optional: {
            bag_token_td absent = make_token(BAG_TOKEN_POINTER_CHOICE, name);
            add(absent, frames, ops, depth, t);
            bag_token_td present = absent;
            present.value.u32 = 1;
            Frames inner = frames;
            inner.push_back(Frame{FrameKind::Optional, t, name});
            add(present, inner, ops, depth, t);
            break;
        }
        case Kind::FixedArray:
        case Kind::VarArray:
            if (role == Role::Element)
                open_scope(frames, ops, depth, Frame{FrameKind::Wrap, t, name}, name);
            else
                start_array(frames, ops, size, depth, t, name);
            break;
        default:
            break;
        }
    }

    static bag_token_td scalar_token(const Type *t, uint32_t type, const char *name)
    {
        bag_token_td tok = make_token(type, type == BAG_TOKEN_VOID ? nullptr : name);
        switch (t->kind) {
        case Kind::String:
        case Kind::OpaqueVar:
            tok.max_length = t->size;
            break;
        case Kind::OpaqueFixed:
            tok.min_length = int32_t(t->size);
            tok.max_length = t->size;
            break;
        case Kind::Enum:
            tok.type_name = t->name.empty() ? nullptr : t->name.c_str();
            break;
        default:
            break;
        }
        return tok;
    }

    void open_scope(Frames frames, const Ops &ops, uint32_t depth, Frame frame,
                    const char *name)
    {
        if (depth + 1 > MAX_DEPTH)
            return;
        frame.scoped = true;
        frames.push_back(frame);
        add(make_token(BAG_TOKEN_BEGIN_SCOPE, name), frames, ops, depth + 1, frame.type);
    }

    void start_union(const Frames &frames, const Ops &ops, uint32_t depth,
                     const Type *u, const char *name)
    {
        /* One alternative per arm, written with the arm's first case value;
         * the default arm with the first value no case names. */
        auto offer = [&](uint32_t arm, int64_t value) {
            bag_token_td tok = make_token(BAG_TOKEN_UNION_CHOICE, name);
            tok.value.u32 = uint32_t(value);
            Frames inner = frames;
            Frame f{FrameKind::Union, u, name};
            f.arm = arm;
            inner.push_back(f);
            add(tok, inner, ops, depth, u);
        };
        for (uint32_t i = 0; i < u->arms.size(); ++i)
            offer(i, u->arms[i].values.front());
        if (u->has_default && u->default_reachable)
            offer(uint32_t(u->arms.size()), u->default_value);
    }

    void start_array(Frames &frames, Ops &ops, std::size_t size, uint32_t depth,
                     const Type *array, const char *name)
    {
        Frame f{FrameKind::Array, array, name};
        f.limit = array->size;
        if (array->kind == Kind::VarArray) {
            f.count_offset = uint32_t(size);
            ops.push_back(Op{uint32_t(size), 0, false});
            size += 4;
        }
        frames.push_back(f);
        explore(frames, ops, size, depth);
    }

    std::vector<Alt> *alts_ = nullptr;
    std::size_t steps_ = 0;
};

bool same_name(const char *a, const char *b)
{
    if (a == nullptr || b == nullptr)
        return a == b;
    return std::strcmp(a, b) == 0;
}

/* The alternative a token stands for: by the index the choice carries when
 * it came from this context, else the first of the same type and name (and
 * value, for union and pointer choices). */
int pick(const bag_encode_context_td &ctx, const std::vector<Alt> &alts,
         const bag_token_td &tok, const Alt **chosen)
{
    uint64_t serial = 0;
    std::memcpy(&serial, tok.reserved, sizeof serial);
    if ((tok.flags & FLAG_CHOICE) != 0 && serial == ctx.serial) {
        std::size_t i = tok.flags & CHOICE_INDEX_MASK;
        if (i >= alts.size() || alts[i].token.type != tok.type)
            return BAG_ERR_BAD_TOKEN;
        *chosen = &alts[i];
        return 0;
    }
    for (const Alt &alt : alts) {
        if (alt.token.type != tok.type || !same_name(alt.token.name, tok.name))
            continue;
        if ((tok.type == BAG_TOKEN_UNION_CHOICE || tok.type == BAG_TOKEN_POINTER_CHOICE) &&
            alt.token.value.u32 != tok.value.u32)
            continue;
        *chosen = &alt;
        return 0;
    }
    return BAG_ERR_BAD_TOKEN;
}

/* Checks the token's value against the alternative and writes its bytes. */
int write_value(const Alt &alt, const bag_token_td &tok, std::vector<uint8_t> &out)
{
    XdrWriter w(out);
    switch (alt.token.type) {
    case BAG_TOKEN_INT8: w.put_u32(uint32_t(int32_t(tok.value.i8))); break;
    case BAG_TOKEN_UINT8: w.put_u32(tok.value.u8); break;
    case BAG_TOKEN_INT16: w.put_u32(uint32_t(int32_t(tok.value.i16))); break;
    case BAG_TOKEN_UINT16: w.put_u32(tok.value.u16); break;
    case BAG_TOKEN_INT32:
    case BAG_TOKEN_UINT32: w.put_u32(tok.value.u32); break;
    case BAG_TOKEN_INT64:
    case BAG_TOKEN_UINT64: w.put_u64(tok.value.u64); break;
    case BAG_TOKEN_INADDRT: /* the address's octets as they lie in memory */
        w.put_bytes(&tok.value.u32, 4);
        break;
    case BAG_TOKEN_BOOL:
        if (tok.value.u32 > 1)
            return BAG_ERR_BAD_VALUE;
        w.put_u32(tok.value.u32);
        break;
    case BAG_TOKEN_ENUM:
        if (!alt.type->accepts(tok.value.i32))
            return BAG_ERR_BAD_VALUE;
        w.put_u32(tok.value.u32);
        break;
    case BAG_TOKEN_STRING: {
        if (tok.value.string == nullptr)
            return BAG_ERR_BAD_ARGUMENT;
        std::size_t n = std::strlen(tok.value.string);
        if (n > alt.token.max_length || n > MAX_BODY)
            return BAG_ERR_BAD_VALUE;
        w.put_counted(tok.value.string, n);
        break;
    }
    case BAG_TOKEN_OPAQUE: {
        uint32_t n = tok.value.u32;
        if (n > 0 && tok.opaque == nullptr)
            return BAG_ERR_BAD_ARGUMENT;
        if (n < uint32_t(alt.token.min_length) || n > alt.token.max_length || n > MAX_BODY)
            return BAG_ERR_BAD_VALUE;
        if (alt.type->kind == Kind::OpaqueFixed)
            w.put_bytes(tok.opaque, n);
        else
            w.put_counted(tok.opaque, n);
        break;
    }
    case BAG_TOKEN_UNION_CHOICE:
    case BAG_TOKEN_POINTER_CHOICE:
        if (tok.value.u32 != alt.token.value.u32)
            return BAG_ERR_BAD_VALUE;
        w.put_u32(tok.value.u32);
        break;
    default: /* void, scopes and the end write nothing */
        break;
    }
    return out.size() > MAX_BODY ? BAG_ERR_BAD_VALUE : 0;
}

void apply_ops(const std::vector<Op> &ops, std::vector<uint8_t> &body)
{
    for (const Op &op : ops) {
        if (op.patch)
            store_u32(body.data() + op.offset, op.value);
        else
            body.insert(body.end(), 4, uint8_t{0});
    }
}

bag_encode_context_td *new_context()
{
    auto *ctx = new (std::nothrow) bag_encode_context_td;
    if (ctx != nullptr)
        ctx->serial = next_serial();
    return ctx;
}

} // namespace

int encode_init_registered(const RegisteredBag &bag, bag_encoder_td **encoder)
{
    auto *enc = new (std::nothrow) bag_encoder_td;
    if (enc == nullptr)
        return BAG_ERR_NO_MEMORY;
    enc->schema = bag.schema;
    enc->declaration = bag.declaration;
    *encoder = enc;
    return 0;
}

} // namespace tarvo_bag

using namespace tarvo_bag;

extern "C" int bag_generic_encode_init(const char *type_name, uint32_t major,
                                       uint32_t minor, uint32_t flags,
                                       bag_encoder_td **encoder)
{
    if (type_name == nullptr || encoder == nullptr || flags != 0)
        return BAG_ERR_BAD_ARGUMENT;
    *encoder = nullptr;
    const RegisteredBag *bag = nullptr;
    int rc = Registry::global().find(type_name, major, minor, &bag);
    if (rc != 0)
        return rc;
    return encode_init_registered(*bag, encoder);
}

extern "C" int bag_generic_encode_get_context(bag_encoder_td *encoder,
                                              bag_encode_context_td **context)
{
    if (encoder == nullptr || context == nullptr)
        return BAG_ERR_BAD_ARGUMENT;
    bag_encode_context_td *ctx = new_context();
    if (ctx == nullptr)
        return BAG_ERR_NO_MEMORY;
    ctx->schema = encoder->schema;
    ctx->declaration = encoder->declaration;
    /* The bag's own struct opens no scope: its fields sit at depth 1. */
    ctx->frames.push_back(Frame{FrameKind::Struct, encoder->declaration->type, nullptr});
    *context = ctx;
    return 0;
}

extern "C" int bag_generic_encode_get_choices(bag_encode_context_td *context,
                                              bag_token_td **choices,
                                              uint32_t *count)
{
    if (context == nullptr || choices == nullptr || count == nullptr)
        return BAG_ERR_BAD_ARGUMENT;
    *choices = nullptr;
    *count = 0;
    if (context->ended)
        return BAG_ERR_END_OF_BAG;
    std::vector<Alt> alts;
    int rc = Explorer().run(*context, alts);
    if (rc != 0)
        return rc;
    auto *array = static_cast<bag_token_td *>(std::calloc(alts.size(), sizeof(bag_token_td)));
    if (array == nullptr)
        return BAG_ERR_NO_MEMORY;
    for (std::size_t i = 0; i < alts.size(); ++i) {
        array[i] = alts[i].token;
        std::memcpy(array[i].reserved, &context->serial, sizeof context->serial);
    }
    *choices = array;
    *count = uint32_t(alts.size());
    return 0;
}

extern "C" int bag_generic_encode_token(bag_encode_context_td *context,
                                        const bag_token_td *token,
                                        bag_encode_context_td **next)
{
    if (context == nullptr || token == nullptr || next == nullptr)
        return BAG_ERR_BAD_ARGUMENT;
    *next = nullptr;
    if (context->ended)
        return BAG_ERR_END_OF_BAG;
    std::vector<Alt> alts;
    int rc = Explorer().run(*context, alts);
    const Alt *alt = nullptr;
    if (rc == 0)
        rc = pick(*context, alts, *token, &alt);
    if (rc != 0)
        return rc;

    std::unique_ptr<bag_encode_context_td> ctx(new_context());
    if (!ctx)
        return BAG_ERR_NO_MEMORY;
    ctx->schema = context->schema;
    ctx->declaration = context->declaration;
    ctx->body = context->body;
    apply_ops(alt->ops, ctx->body);
    rc = write_value(*alt, *token, ctx->body);
    if (rc != 0)
        return rc;
    ctx->frames = alt->frames;
    ctx->depth = alt->depth;
    ctx->tokens = context->tokens + 1;
    ctx->ended = alt->token.type == BAG_TOKEN_END;
    *next = ctx.release();
    return 0;
}

extern "C" void bag_generic_encode_context_free(bag_encode_context_td *context)
{
    delete context;
}

extern "C" int bag_generic_encode_finish(bag_encode_context_td *context,
                                         bag_td **bag, uint32_t *size)
{
    if (context == nullptr || bag == nullptr || size == nullptr)
        return BAG_ERR_BAD_ARGUMENT;
    *bag = nullptr;
    *size = 0;
    std::vector<uint8_t> body = context->body;
    uint64_t tokens = context->tokens;
    if (!context->ended) {
        std::vector<Alt> alts;
        if (Explorer().run(*context, alts) != 0)
            return BAG_ERR_INCOMPLETE;
        const Alt *end = nullptr;
        for (const Alt &alt : alts)
            if (alt.token.type == BAG_TOKEN_END && end == nullptr)
                end = &alt;
        if (end == nullptr)
            return BAG_ERR_INCOMPLETE;
        apply_ops(end->ops, body);
        ++tokens;
    }
    std::vector<uint8_t> out;
    const BagDeclaration &decl = *context->declaration;
    write_header(out, BAG_ENCODING_XDR, decl.name, decl.major, decl.minor,
                 uint32_t(body.size()));
    out.insert(out.end(), body.begin(), body.end());
    /* A decoder refuses bags with more tokens than bytes (so no bag can keep
     * it busy for long); such bags come only from deep nesting around tiny
     * fields, and are refused here already. */
    if (tokens > out.size())
        return BAG_ERR_TOO_DEEP;
    void *mem = std::malloc(out.size());
    if (mem == nullptr)
        return BAG_ERR_NO_MEMORY;
    std::memcpy(mem, out.data(), out.size());
    *bag = static_cast<bag_td *>(mem);
    *size = uint32_t(out.size());
    return 0;
}

extern "C" void bag_generic_encode_done(bag_encoder_td *encoder)
{
    delete encoder;
}
