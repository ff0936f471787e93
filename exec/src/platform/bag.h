/*
 * Bags: structured values of a registered bag type, encoded in XDR behind a
 * header. Bag types are declared in schema files found on TARVO_BAG_PATH (a
 * colon-separated list of folders; default: the schema folder installed with
 * the project). The schema language and the byte layout of a bag are
 * documented in docs/bags.md.
 *
 * Results: every function that returns int returns 0 on success or one of
 * the BAG_ERR_ codes below (texts through errcode_strerror).
 *
 * Encoder. bag_generic_encode_init(type, major, minor, 0, &enc) starts an
 *   encoder for a registered type and version. bag_generic_encode_get_context
 *   gives its first context. A context is an immutable position in the bag:
 *   bag_generic_encode_get_choices lists the tokens allowed next as a heap
 *   array (caller frees it with free; at least one entry), with names, enum
 *   type names and length bounds filled in; the entry of type BAG_TOKEN_END
 *   appears when the bag may end there. bag_generic_encode_token(ctx, tok,
 *   &next) takes one of those choices with its value filled in and gives a
 *   new context; ctx stays valid and is released by the caller with
 *   bag_generic_encode_context_free. The encoder copies what it needs from
 *   tok (texts, bytes). bag_generic_encode_finish(ctx, &bag, &size) gives the
 *   encoded bag (heap memory, freed with free) when ctx is at a point where
 *   the bag may end. bag_generic_encode_done releases the encoder; contexts
 *   must be released before it.
 *
 * Decoder. bag_header_info(bag, length, &info) reads the header of a bag of
 *   `length` bytes. bag_generic_init(bag, length, &h) starts decoding (the
 *   code BAG_ERR_TYPE_NOT_REGISTERED when the type is unknown);
 *   bag_generic_token(&h, &tok) yields the tokens in order, the last one of
 *   type BAG_TOKEN_END; texts and bytes a token points at stay valid until
 *   bag_generic_free_token_allocations(&tok); bag_generic_destroy(&h)
 *   releases the decoder. Damaged or truncated bags give an error code,
 *   never a crash, and a decoder never yields more tokens than the bag has
 *   bytes.
 *
 * bag_schema_diagnostics: the schema errors met while loading the schema
 *   files ("file:line: expected ..." lines), or null when there were none.
 *   The text belongs to the library.
 *
 * Thread safety: the schema registry is loaded once, on first use, under a
 * lock; encoders and decoders are used from one thread each.
 */
#ifndef TARVO_PLATFORM_BAG_H
#define TARVO_PLATFORM_BAG_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* An encoded bag; its bytes are opaque to callers. */
typedef struct bag_td bag_td;

/* Token types. */
#define BAG_TOKEN_INT8 0
#define BAG_TOKEN_UINT8 1
#define BAG_TOKEN_INT16 2
#define BAG_TOKEN_UINT16 3
#define BAG_TOKEN_INT32 4
#define BAG_TOKEN_UINT32 5
#define BAG_TOKEN_INT64 6
#define BAG_TOKEN_UINT64 7
#define BAG_TOKEN_INADDRT 8
#define BAG_TOKEN_ENUM 9
#define BAG_TOKEN_BOOL 10
#define BAG_TOKEN_VOID 11
#define BAG_TOKEN_STRING 12
#define BAG_TOKEN_OPAQUE 13
#define BAG_TOKEN_BEGIN_SCOPE 14
#define BAG_TOKEN_END_SCOPE 15
#define BAG_TOKEN_UNION_CHOICE 16
#define BAG_TOKEN_POINTER_CHOICE 17
#define BAG_TOKEN_END 18
#define BAG_TOKEN_LINKED_LIST 19

#define BAG_UNBOUNDED 0xFFFFFFFFu

/* One token, 72 bytes. Offsets are fixed (see the static checks in the
 * library). */
typedef struct bag_token_td {
    uint32_t type;     /* 0: BAG_TOKEN_ */
    uint32_t flags;    /* 4: library's own */
    union {            /* 8 */
        int8_t i8;
        uint8_t u8;
        int16_t i16;
        uint16_t u16;
        int32_t i32;
        uint32_t u32;  /* also: alternative number, opaque byte count */
        int64_t i64;
        uint64_t u64;
        char *string;
    } value;
    void *opaque;          /* 16: opaque bytes */
    int32_t min_length;    /* 24: opaque lower bound */
    uint32_t max_length;   /* 28: string/opaque upper bound or BAG_UNBOUNDED */
    uint8_t reserved[24];  /* 32: library's own */
    const char *name;      /* 56: field name or null */
    const char *type_name; /* 64: enum type name or null */
} bag_token_td;

typedef struct bag_encoder_td bag_encoder_td;
typedef struct bag_encode_context_td bag_encode_context_td;

#define BAG_MAX_TYPE_NAME 255
#define BAG_ENCODING_XDR 1

typedef struct bag_header_info_td {
    uint32_t encoding;     /* BAG_ENCODING_XDR or another value */
    const char *type_name; /* points into type_name_storage */
    int32_t major;
    int32_t minor;
    char type_name_storage[BAG_MAX_TYPE_NAME + 1];
} bag_header_info_td;

typedef struct bag_decoder_td *bag_generic_h_td;

/* The bag library's codes: X(NAME, code, text) gives the constant NAME (an
 * int32_t value) and the text errcode_strerror returns for it. */
#define BAG_ERROR_LIST(X)                                                    \
    X(BAG_ERR_TYPE_NOT_REGISTERED, 0xA0859000, "bag type not registered")    \
    X(BAG_ERR_BAD_HEADER, 0xA0858000, "bag header is damaged")               \
    X(BAG_ERR_TRUNCATED, 0xA0858200, "bag is truncated")                     \
    X(BAG_ERR_CORRUPT, 0xA0858400, "bag body does not match its type")       \
    X(BAG_ERR_VERSION, 0xA0858600, "bag type version not registered")        \
    X(BAG_ERR_BAD_TOKEN, 0xA0858800, "token not allowed here")               \
    X(BAG_ERR_BAD_VALUE, 0xA0858a00, "token value out of range")             \
    X(BAG_ERR_INCOMPLETE, 0xA0858c00, "bag is not complete")                 \
    X(BAG_ERR_END_OF_BAG, 0xA0858e00, "no more tokens in bag")               \
    X(BAG_ERR_BAD_ARGUMENT, 0xA0859200, "bad argument to bag library")       \
    X(BAG_ERR_NO_MEMORY, 0xC0859400, "no memory for bag")                    \
    X(BAG_ERR_TOO_DEEP, 0xA0859600, "bag nesting too deep")

#define BAG_ERROR_ENUMERATOR(name, code, text) name = (int32_t)code##u,
enum
#ifdef __cplusplus
    : int32_t
#endif
{ BAG_ERROR_LIST(BAG_ERROR_ENUMERATOR) };
#undef BAG_ERROR_ENUMERATOR

int bag_generic_encode_init(const char *type_name, uint32_t major,
                            uint32_t minor, uint32_t flags,
                            bag_encoder_td **encoder);
int bag_generic_encode_get_context(bag_encoder_td *encoder,
                                   bag_encode_context_td **context);
int bag_generic_encode_get_choices(bag_encode_context_td *context,
                                   bag_token_td **choices, uint32_t *count);
int bag_generic_encode_token(bag_encode_context_td *context,
                             const bag_token_td *token,
                             bag_encode_context_td **next);
void bag_generic_encode_context_free(bag_encode_context_td *context);
int bag_generic_encode_finish(bag_encode_context_td *context, bag_td **bag,
                              uint32_t *size);
void bag_generic_encode_done(bag_encoder_td *encoder);

int bag_header_info(const bag_td *bag, uint32_t length,
                    bag_header_info_td *info);
int bag_generic_init(const bag_td *bag, uint32_t length,
                     bag_generic_h_td *handle);
int bag_generic_token(bag_generic_h_td *handle, bag_token_td *token);
void bag_generic_free_token_allocations(bag_token_td *token);
void bag_generic_destroy(bag_generic_h_td *handle);

const char *bag_schema_diagnostics(void);

#ifdef __cplusplus
}
#endif

#endif
