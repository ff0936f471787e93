/*
 * The position inside a bag, shared by the encoder and the decoder: a stack
 * of frames, one per compound value being walked. Tokens come from the top
 * frame; a frame that is done is popped, giving an EndScope token when it
 * opened a scope. See docs/bags.md for the tokens each construct yields.
 */
#ifndef TARVO_BAG_FRAMES_H
#define TARVO_BAG_FRAMES_H

#include <cstdint>

#include "platform/bag.h"
#include "schema.h"

namespace tarvo_bag {

/* Scope depth: the fields of the bag's own struct sit at depth 1. */
constexpr uint32_t MAX_DEPTH = 64;
/* Frames also grow without scopes (optional data inside unions); bound them
 * too so that no bag can make the walker use unbounded memory. */
constexpr std::size_t MAX_FRAMES = 1024;

/* Bits of bag_token_td.flags, the library's own. */
constexpr uint32_t FLAG_CHOICE = 0x80000000u; /* low 24 bits: choice index */
constexpr uint32_t FLAG_OWNS_STRING = 0x01000000u;
constexpr uint32_t FLAG_OWNS_OPAQUE = 0x02000000u;
constexpr uint32_t FLAG_OWNS_NAME = 0x04000000u;
constexpr uint32_t CHOICE_INDEX_MASK = 0x00FFFFFFu;

enum class FrameKind : uint8_t { Struct, Union, Optional, Array, Wrap };

/* How an item is reached; an array whose elements are arrays wraps each
 * element in a scope so that the element boundaries stay visible. */
enum class Role : uint8_t { Field, Element };

struct Frame {
    FrameKind kind = FrameKind::Struct;
    const Type *type = nullptr; /* the struct, union, optional or array */
    const char *name = nullptr; /* name of the tokens inside */
    uint32_t index = 0;  /* struct: next field; array: elements so far;
                            union, optional, wrap: 1 once the inner item began */
    uint32_t arm = 0;    /* union: chosen arm (arms.size() = default) */
    uint32_t limit = 0;  /* array: element count (decoder) or maximum */
    uint32_t count_offset = 0; /* variable array: body offset of its count */
    bool scoped = false; /* gives an EndScope when done */
};

inline const char *field_name(const Field &f)
{
    return f.name.empty() ? nullptr : f.name.c_str();
}

inline const Field &union_arm(const Type *u, uint32_t arm)
{
    return arm < u->arms.size() ? u->arms[arm].field : u->default_arm;
}

} // namespace tarvo_bag

#endif
