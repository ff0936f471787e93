/*
 * Packed tuples: a short list of typed arguments stored together with the
 * format that describes them and a presence mask (bit i set when argument i
 * has a value). The byte layout is documented in docs/formats.md.
 *
 * Format conversions (an optional '%' and decimal digits may precede each):
 *   d    unsigned 32-bit integer
 *   ld   unsigned 32-bit integer ("long"; values are 32 bits wide)
 *   llu  unsigned 64-bit integer
 *   s    NUL-terminated string (packing); S with a length (unpacking)
 *   N    IPv4 address, 32 bits in network byte order
 *
 * tuple_packv(flags, reserved, mask, format, args): builds a new tuple from
 *   the argument slots (args[i] for conversion i). flags and reserved must be
 *   0; mask is the presence mask (0xFFFFFFFF: every argument present). A
 *   string slot holds a pointer to the text (null packs an absent string).
 *   Returns a heap tuple released with tuple_free, or null for a bad format,
 *   more than TUPLE_MAX_ARGS conversions, or no memory.
 * tuple_size: the encoded size of a tuple in bytes.
 * tuple_check(buf, len): 0 when the len bytes at buf are exactly one
 *   well-formed tuple, else TUPLE_ERR_CORRUPT. Never reads past len.
 * tuple_extract_format: a heap copy of the tuple's format (free with free),
 *   each string conversion written as "%<length>s" with the stored length,
 *   or null when the tuple is damaged or memory is short.
 * tuple_unpackv(tuple, &mask, format, args): before the call each args[i]
 *   points at the memory that receives argument i (usually at the slot
 *   itself). Stores each argument there: 32-bit integers in 4 bytes, 64-bit
 *   integers in 8 bytes, addresses in 4 bytes (network order), strings as a
 *   heap pointer (freed by the caller with free; null when absent; an
 *   empty string is a static "" that is not freed, so callers free exactly
 *   the strings whose length is not zero). Absent integers are stored as 0.
 *   *mask receives the presence mask. `format` is the extracted format with
 *   its string conversions written "S" (or "s"); its conversions must be
 *   those of the tuple. Returns 0, or TUPLE_ERR_CORRUPT / TUPLE_ERR_FORMAT
 *   when the tuple or format is bad, TUPLE_ERR_NO_MEMORY (nothing is then
 *   left allocated).
 * tuple_free: releases a tuple from tuple_packv (null is ignored).
 *
 * No function keeps state; all are thread-safe. Decoding arbitrary bytes
 * never reads out of bounds.
 */
#ifndef TARVO_PLATFORM_TUPLE_H
#define TARVO_PLATFORM_TUPLE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TUPLE_MAX_ARGS 32

/* An encoded tuple; its bytes are opaque to callers. */
typedef struct tuple_buf tuple_buf;

/* One 8-byte argument slot. */
typedef union tuple_arg {
    uint32_t u32;
    uint64_t u64;
    char *str;
    void *ptr;
} tuple_arg;

/* The tuple library's codes: X(NAME, code, text) gives the constant NAME
 * (an int32_t value) and the text errcode_strerror returns for it. */
#define TUPLE_ERROR_LIST(X)                                              \
    X(TUPLE_ERR_FORMAT, 0x40868000, "bad tuple format string")           \
    X(TUPLE_ERR_CORRUPT, 0x40868200, "packed tuple is damaged")          \
    X(TUPLE_ERR_TOO_MANY, 0x40868400, "too many arguments in tuple")     \
    X(TUPLE_ERR_NO_MEMORY, 0xc0868600, "no memory for tuple")

#define TUPLE_ERROR_ENUMERATOR(name, code, text) name = (int32_t)code##u,
enum
#ifdef __cplusplus
    : int32_t
#endif
{ TUPLE_ERROR_LIST(TUPLE_ERROR_ENUMERATOR) };
#undef TUPLE_ERROR_ENUMERATOR

tuple_buf *tuple_packv(uint32_t flags, uint32_t reserved, uint32_t mask,
                       const char *format, tuple_arg *args);
uint32_t tuple_size(const tuple_buf *tuple);
int tuple_check(const void *buf, uint32_t len);
char *tuple_extract_format(const tuple_buf *tuple);
int tuple_unpackv(const tuple_buf *tuple, uint32_t *mask, const char *format,
                  tuple_arg *args);
void tuple_free(tuple_buf *tuple);

#ifdef __cplusplus
}
#endif

#endif
