/*
 * Bag value display: the item's header line with the bag type, version and
 * encoding, then one line per decoded token, indented two blanks per level
 * of nesting. Failures of the library are reported with catalogue messages
 * after whatever was already printed.
 */
#include <assert.h>
#include <ctype.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>

#include "platform/os.h"
#include "tarvocon.h"

static void tarvocon_print_bag_int8(const bag_token_td *t, const char *name, FILE *stream)
{
    if (isprint(t->value.u8)) {
        fprintf(stream, "int8 (len 1)]\t'%s'\t%3d (0x%2.2X)\t'%c'\n", name,
                (int)t->value.i8, (unsigned)t->value.u8, (char)t->value.u8);
    } else {
        fprintf(stream, "int8 (len 1)]\t'%s'\t%3d (0x%2.2X)\t''\n", name,
                (int)t->value.i8, (unsigned)t->value.u8);
    }
}

static void tarvocon_print_bag_uint8(const bag_token_td *t, const char *name, FILE *stream)
{
    if (isprint(t->value.u8)) {
        fprintf(stream, "uint8 (len 1)]\t'%s'\t%3u (0x%2.2X)\t'%c'\n", name,
                (unsigned)t->value.u8, (unsigned)t->value.u8, (char)t->value.u8);
    } else {
        fprintf(stream, "uint8 (len 1)]\t'%s'\t%3u (0x%2.2X)\t''\n", name,
                (unsigned)t->value.u8, (unsigned)t->value.u8);
    }
}

static void tarvocon_print_bag_address(const bag_token_td *t, const char *name,
                                       FILE *stream)
{
    char text[16] = "";
    struct in_addr address;
    address.s_addr = t->value.u32;
    inet_ntoa_r(address, text, (int)sizeof text);
    fprintf(stream, "in_addr_t (len 4)]\t'%s'\t%s\n", name, text);
}

static void tarvocon_print_bag_opaque(const bag_token_td *t, const char *name,
                                      FILE *stream)
{
    const uint8_t *bytes = (const uint8_t *)t->opaque;
    fprintf(stream, "opaque (len %u)]\t'%s'\t(", t->value.u32, name);
    for (uint32_t i = 0; bytes != NULL && i < t->value.u32; i++) {
        fprintf(stream, "%2.2X", bytes[i]);
    }
    fprintf(stream, ")\n");
}

/* The token's line, after the indentation and the "[". */
static void tarvocon_print_bag_token(const bag_token_td *t, const char *name, FILE *stream)
{
    switch (t->type) {
    case BAG_TOKEN_INT8:
        tarvocon_print_bag_int8(t, name, stream);
        break;
    case BAG_TOKEN_UINT8:
        tarvocon_print_bag_uint8(t, name, stream);
        break;
    case BAG_TOKEN_INT16:
        fprintf(stream, "int16 (len 2)]\t'%s'\t%5d (0x%4.4X)\n", name,
                (int)t->value.i16, (unsigned)t->value.u16);
        break;
    case BAG_TOKEN_UINT16:
        fprintf(stream, "uint16 (len 2)]\t'%s'\t%5u (0x%4.4X)\n", name,
                (unsigned)t->value.u16, (unsigned)t->value.u16);
        break;
    case BAG_TOKEN_INT32:
        fprintf(stream, "int32 (len 4)]\t'%s'\t%10d (0x%8.8X)\n", name, t->value.i32,
                t->value.u32);
        break;
    case BAG_TOKEN_UINT32:
        fprintf(stream, "uint32 (len 4)]\t'%s'\t%10u (0x%8.8X)\n", name, t->value.u32,
                t->value.u32);
        break;
    case BAG_TOKEN_UINT64:
        fputc('u', stream);
        [[fallthrough]];
    case BAG_TOKEN_INT64:
        fprintf(stream, "int64 (len 8)]\t'%s'\t0x%8.8X%8.8X\n", name,
                (uint32_t)(t->value.u64 >> 32), (uint32_t)t->value.u64);
        break;
    case BAG_TOKEN_INADDRT:
        tarvocon_print_bag_address(t, name, stream);
        break;
    case BAG_TOKEN_ENUM:
        fprintf(stream, "enum (len 4)]\t'%s'\t0x%8.8X\n", name, t->value.u32);
        break;
    case BAG_TOKEN_BOOL:
        fprintf(stream, "bool]\t'%s'\t%s\n", name, t->value.u32 != 0 ? "TRUE" : "FALSE");
        break;
    case BAG_TOKEN_VOID:
        fprintf(stream, "void]\n");
        break;
    case BAG_TOKEN_STRING: {
        const char *text = t->value.string != NULL ? t->value.string : "";
        fprintf(stream, "string (len %u)]\t'%s'\t'%s'\n", (unsigned)strlen(text), name,
                text);
        break;
    }
    case BAG_TOKEN_OPAQUE:
        tarvocon_print_bag_opaque(t, name, stream);
        break;
    case BAG_TOKEN_BEGIN_SCOPE:
        if (name[0] != '\0') {
            fprintf(stream, "'%s' {\n", name);
        } else {
            fprintf(stream, "{\n");
        }
        break;
    case BAG_TOKEN_END_SCOPE:
        fprintf(stream, "}\n");
        break;
    case BAG_TOKEN_UNION_CHOICE:
        fprintf(stream, "union choice]\t%8.8X\n", t->value.u32);
        break;
    case BAG_TOKEN_POINTER_CHOICE:
        fprintf(stream, "pointer choice]\t%8.8X\n", t->value.u32);
        break;
    case BAG_TOKEN_END:
        fprintf(stream, "end bag]\n");
        break;
    case BAG_TOKEN_LINKED_LIST:
        fprintf(stream, "<linked list type>\n");
        break;
    default:
        fprintf(stream, "UNKNOWN TOKEN TYPE %d - ERROR]\n", (int)t->type);
        break;
    }
}

/* Prints every token up to the end of the bag; the decoder is destroyed
 * on every way out. */
static void tarvocon_print_bag_tokens(bag_generic_h_td *handle, FILE *stream)
{
    int depth = 1;
    for (;;) {
        bag_token_td token;
        memset(&token, 0, sizeof token);
        int rc = bag_generic_token(handle, &token);
        if (rc != 0) {
            vel_printmsg(tarvocon_msg_bag_decode_err(), VEL_SEVERITY_WARNING,
                         errcode_strerror(rc));
            break;
        }
        if (token.type == BAG_TOKEN_END_SCOPE || token.type == BAG_TOKEN_END) {
            depth--;
        }
        for (int i = 0; i < depth; i++) {
            fputs("  ", stream);
        }
        const char *name = token.name != NULL ? token.name : "";
        if (token.type != BAG_TOKEN_BEGIN_SCOPE && token.type != BAG_TOKEN_END_SCOPE) {
            fputc('[', stream);
        }
        tarvocon_print_bag_token(&token, name, stream);
        if (token.type == BAG_TOKEN_BEGIN_SCOPE) {
            depth++;
        }
        bag_generic_free_token_allocations(&token);
        if (token.type == BAG_TOKEN_END) {
            break;
        }
    }
    bag_generic_destroy(handle);
}

void tarvocon_print_bag(bag_td *bag, uint32_t length, char *name, const char *prefix,
                        FILE *stream)
{
    assert(bag != NULL);
    assert(name != NULL);
    assert(prefix != NULL);
    assert(stream != NULL);
    bag_header_info_td info;
    memset(&info, 0, sizeof info);
    int rc = bag_header_info(bag, length, &info);
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_bag_hdr_fail(), VEL_SEVERITY_WARNING, errcode_strerror(rc));
        return;
    }
    fprintf(stream, "%s[bag (len %u)] \t'%s' (%s v%d.%d %s)\n", prefix, length, name,
            info.type_name, info.major, info.minor,
            info.encoding == BAG_ENCODING_XDR ? "XDR" : "UNKNOWN");

    bag_generic_h_td handle = NULL;
    rc = bag_generic_init(bag, length, &handle);
    if (rc == BAG_ERR_TYPE_NOT_REGISTERED) {
        vel_printmsg(tarvocon_msg_bag_type_fail(), VEL_SEVERITY_WARNING);
        return;
    }
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_bag_decode_err(), VEL_SEVERITY_WARNING, errcode_strerror(rc));
        return;
    }
    tarvocon_print_bag_tokens(&handle, stream);
}
