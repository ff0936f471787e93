/*
 * Bag value entry: the dialogue that builds a bag of a registered bag type
 * with the bag library's encoder. It asks for the type's version, then, step
 * by step, lists what the encoder accepts next, lets the user pick one
 * alternative and enter its value, until the encoder offers the end of the
 * bag. Answers come from the terminal or, in command-file mode, from the
 * lines after the command.
 *
 * Choices the console decides itself (docs/bags.md): a hex opaque answer
 * holding anything but hex digit pairs and blanks is refused like an odd
 * digit count; an encoder step with no choices ends the dialogue with
 * "Error finding choices"; the end of input at a terminal prompt abandons
 * the dialogue like ^C.
 */
#include <assert.h>
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/os.h"
#include "tarvocon.h"

/* The word shown for each token type the dialogue accepts (0 to 17). */
static const char *const tarvocon_bag_type_words[] = {
    "INT8",   "UINT8",   "INT16", "UINT16",     "INT32",    "UINT32",
    "INT64",  "UINT64",  "INADDRT", "ENUM",     "BOOL",     "VOID",
    "STRING", "OPAQUE",  "BeginScope", "EndScope", "UnionChoice",
    "PointerChoice"};

/* Everything one dialogue holds; released on every way out. */
typedef struct tarvocon_bag_dialogue_td {
    getline_data *gl_data;
    bag_encoder_td *encoder;
    bag_encode_context_td *context;
    bag_encode_context_td *next_context;
    bag_token_td *choices;
    uint8_t *opaque_bytes;
    char answer[TARVOCON_LINE_SIZE]; /* a string value points here */
} tarvocon_bag_dialogue_td;

/* Ends the console: the command file has no answer to give. */
[[noreturn]] static void tarvocon_bag_file_ended(FILE *file)
{
    if (ferror(file)) {
        vel_printmsg(tarvocon_msg_sc_fileread(), VEL_SEVERITY_NOTICE);
    } else {
        vel_printmsg(tarvocon_msg_sc_pkdtuplefile(), VEL_SEVERITY_NOTICE);
    }
    tarvocon_unbind(tarvocon_bind_handle);
    exit(0);
}

static int tarvocon_read_bag_terminal(const char *prompt, char *line,
                                      getline_data *gl_data)
{
    assert(gl_data != NULL);
    for (;;) {
        uint8_t status = 0;
        char *answer = qn_getline(gl_data, prompt, NULL, &status);
        if (answer == NULL) {
            return 1; /* end of input: nothing more can be answered */
        }
        if (status == GETLINE_COMPLETE || status == GETLINE_HELP) {
            free(answer);
            continue;
        }
        if (status == GETLINE_DISCARD) {
            free(answer);
            return 1;
        }
        getline_histadd(gl_data, answer);
        snprintf(line, TARVOCON_LINE_SIZE, "%s", answer);
        free(answer);
        return 0;
    }
}

int tarvocon_read_bag_line(const char *prompt, char *line, getline_data *gl_data)
{
    assert(prompt != NULL);
    assert(line != NULL);
    if (tarvocon_from_file) {
        FILE *file = tarvocon_command_file;
        assert(file != NULL);
        if (fgets(line, TARVOCON_LINE_SIZE, file) == NULL) {
            tarvocon_bag_file_ended(file);
        }
        printf("%s", line);
    } else if (tarvocon_read_bag_terminal(prompt, line, gl_data) != 0) {
        return 1;
    }
    line[strcspn(line, "\n")] = '\0';
    return 0;
}

static void tarvocon_print_max_length(uint32_t max_length)
{
    if (max_length == BAG_UNBOUNDED) {
        printf("(length unbounded) ");
    } else {
        printf("(max length %u) ", max_length);
    }
}

void tarvocon_print_bag_choice(const bag_token_td *choice, const char *word)
{
    assert(choice != NULL);
    assert(word != NULL);
    printf("%s ", word);
    if (choice->name != NULL) {
        printf("%s: ", choice->name);
    } else {
        printf("<no-name> ");
    }
    switch (choice->type) {
    case BAG_TOKEN_ENUM:
        if (choice->type_name != NULL) {
            printf("(type %s) ", choice->type_name);
        } else {
            printf("(unknown type) ");
        }
        break;
    case BAG_TOKEN_STRING:
        tarvocon_print_max_length(choice->max_length);
        break;
    case BAG_TOKEN_OPAQUE:
        printf("(min length %d) ", choice->min_length);
        tarvocon_print_max_length(choice->max_length);
        break;
    case BAG_TOKEN_UNION_CHOICE:
    case BAG_TOKEN_POINTER_CHOICE:
        printf("(value %d) ", choice->value.i32);
        break;
    default:
        break;
    }
    printf("\n");
}

/* Lists the choices; sets *last when the end of the bag is among them.
 * Returns 1 when a choice has a type the dialogue does not know. */
static int tarvocon_list_bag_choices(const bag_token_td *choices, uint32_t count,
                                     int *last)
{
    int failed = 0;
    for (uint32_t i = 0; i < count; i++) {
        uint32_t type = choices[i].type;
        if (count == 1) {
            printf(" -->");
        } else {
            printf("%d. ", (int)(i + 1));
        }
        if (type == BAG_TOKEN_END) {
            printf("End of bag\n");
            *last = 1;
        } else if (type > BAG_TOKEN_END) {
            printf("Error: unrecognised bag option %d\n", (int)type);
            failed = 1;
        } else {
            tarvocon_print_bag_choice(&choices[i], tarvocon_bag_type_words[type]);
        }
    }
    return failed;
}

/* The 1-based selection, asked until it is in range; -1 after ^C. */
static int tarvocon_select_bag_choice(uint32_t count, getline_data *gl_data)
{
    char line[TARVOCON_LINE_SIZE];
    if (count == 1) {
        return 0;
    }
    for (;;) {
        if (tarvocon_read_bag_line("Which number (or ^C to quit):", line, gl_data) != 0) {
            return -1;
        }
        int n = atoi(line);
        if (n >= 1 && (uint32_t)n <= count) {
            return n - 1;
        }
    }
}

static int tarvocon_hex_digit(char c)
{
    return isdigit((unsigned char)c) ? c - '0' : toupper((unsigned char)c) - 'A' + 10;
}

/* Bytes of an opaque answer: "text" between quotes as it stands, empty as
 * no bytes, otherwise pairs of hex digits with blanks before and between
 * pairs. bytes has room for strlen(answer). Returns 0 when refused. */
static int tarvocon_parse_opaque(const char *answer, uint8_t *bytes, uint32_t *count)
{
    size_t len = strlen(answer);
    *count = 0;
    if (len >= 2 && answer[0] == '"' && answer[len - 1] == '"') {
        memcpy(bytes, answer + 1, len - 2);
        *count = (uint32_t)(len - 2);
        return 1;
    }
    if (len == 0) {
        return 1;
    }
    const char *p = answer;
    for (;;) {
        while (*p == ' ' || *p == '\t') {
            p++;
        }
        if (*p == '\0') {
            break;
        }
        if (!isxdigit((unsigned char)p[0]) || !isxdigit((unsigned char)p[1])) {
            return 0; /* an odd digit, or a character that is not hex */
        }
        bytes[(*count)++] =
            (uint8_t)(tarvocon_hex_digit(p[0]) << 4 | tarvocon_hex_digit(p[1]));
        p += 2;
    }
    return *count > 0; /* blanks only */
}

static int tarvocon_read_bag_opaque(tarvocon_bag_dialogue_td *d, bag_token_td *chosen)
{
    char line[TARVOCON_LINE_SIZE];
    for (;;) {
        if (tarvocon_read_bag_line(
                "Enter opaque value as hex (ff12...) or \"string\" (or ^C to stop):",
                line, d->gl_data) != 0) {
            return 1;
        }
        size_t len = strlen(line);
        uint8_t *bytes = (uint8_t *)malloc(len > 0 ? len : 1);
        if (bytes == NULL) {
            vel_printmsg(tarvocon_msg_mem_fail(), VEL_SEVERITY_WARNING);
            return 1;
        }
        uint32_t count = 0;
        if (tarvocon_parse_opaque(line, bytes, &count) &&
            count >= (uint32_t)chosen->min_length && count <= chosen->max_length) {
            d->opaque_bytes = bytes;
            chosen->value.u32 = count;
            chosen->opaque = bytes;
            return 0;
        }
        free(bytes);
    }
}

static int tarvocon_read_bag_integer(tarvocon_bag_dialogue_td *d, int *value)
{
    char line[TARVOCON_LINE_SIZE];
    if (tarvocon_read_bag_line("Enter integer value (or ^C to stop):", line,
                               d->gl_data) != 0) {
        return 1;
    }
    *value = atoi(line);
    return 0;
}

/* Asks for the value of the chosen record, by its type. */
static int tarvocon_read_bag_value(tarvocon_bag_dialogue_td *d, bag_token_td *chosen)
{
    int value = 0;
    switch (chosen->type) {
    case BAG_TOKEN_INT8:
    case BAG_TOKEN_UINT8:
        if (tarvocon_read_bag_integer(d, &value) != 0) {
            return 1;
        }
        chosen->value.u8 = (uint8_t)value;
        return 0;
    case BAG_TOKEN_INT16:
    case BAG_TOKEN_UINT16:
        if (tarvocon_read_bag_integer(d, &value) != 0) {
            return 1;
        }
        chosen->value.u16 = (uint16_t)value;
        return 0;
    case BAG_TOKEN_INT32:
    case BAG_TOKEN_UINT32:
    case BAG_TOKEN_ENUM:
    case BAG_TOKEN_BOOL:
        if (tarvocon_read_bag_integer(d, &value) != 0) {
            return 1;
        }
        chosen->value.u32 = (uint32_t)value;
        return 0;
    case BAG_TOKEN_INT64:
    case BAG_TOKEN_UINT64:
        printf("   (NB only values that fit in 32 bits are supported)\n");
        if (tarvocon_read_bag_integer(d, &value) != 0) {
            return 1;
        }
        chosen->value.i64 = (int64_t)value;
        return 0;
    case BAG_TOKEN_INADDRT:
        if (tarvocon_read_bag_line("Enter IPv4 address value (or ^C to stop):",
                                   d->answer, d->gl_data) != 0) {
            return 1;
        }
        chosen->value.u32 = (uint32_t)qn_inet_addr(d->answer);
        return 0;
    case BAG_TOKEN_STRING:
        if (tarvocon_read_bag_line("Enter string value (or ^C to stop):", d->answer,
                                   d->gl_data) != 0) {
            return 1;
        }
        chosen->value.string = d->answer;
        return 0;
    case BAG_TOKEN_OPAQUE:
        return tarvocon_read_bag_opaque(d, chosen);
    case BAG_TOKEN_VOID:
    case BAG_TOKEN_BEGIN_SCOPE:
    case BAG_TOKEN_END_SCOPE:
    case BAG_TOKEN_UNION_CHOICE:
    case BAG_TOKEN_POINTER_CHOICE:
    case BAG_TOKEN_END:
        return 0;
    default:
        printf("TarvoCon: Fatal error - unrecognised type %d\n", (int)chosen->type);
        return 1;
    }
}

/* One step: list, select, enter the value, encode. Sets *last after the
 * step that offered the end of the bag; that step's record is not encoded. */
static int tarvocon_bag_step(tarvocon_bag_dialogue_td *d, int *last)
{
    uint32_t count = 0;
    int rc = bag_generic_encode_get_choices(d->context, &d->choices, &count);
    if (rc == 0 && count == 0) {
        rc = BAG_ERR_END_OF_BAG; /* the library promises at least one */
    }
    if (rc != 0) {
        printf("Error finding choices: %s\n", errcode_strerror(rc));
        return 1;
    }
    if (tarvocon_list_bag_choices(d->choices, count, last) != 0) {
        return 1;
    }
    int selected = tarvocon_select_bag_choice(count, d->gl_data);
    if (selected < 0) {
        return 1;
    }
    bag_token_td *chosen = &d->choices[selected];
    if (tarvocon_read_bag_value(d, chosen) != 0) {
        return 1;
    }
    if (!*last) {
        rc = bag_generic_encode_token(d->context, chosen, &d->next_context);
        if (rc != 0) {
            printf("Error getting new context: %s\n", errcode_strerror(rc));
            return 1;
        }
        bag_generic_encode_context_free(d->context);
        d->context = d->next_context;
        d->next_context = NULL;
    }
    free(d->choices);
    d->choices = NULL;
    free(d->opaque_bytes);
    d->opaque_bytes = NULL;
    return 0;
}

static int tarvocon_read_bag_version(const char *prompt, getline_data *gl_data,
                                     uint32_t *version)
{
    char line[TARVOCON_LINE_SIZE];
    if (tarvocon_read_bag_line(prompt, line, gl_data) != 0) {
        return 1;
    }
    *version = (uint32_t)atoi(line);
    return 0;
}

static int tarvocon_bag_dialogue(tarvocon_bag_dialogue_td *d, char *bag_name,
                                 bag_td **bag, uint32_t *bag_size)
{
    uint32_t major = 0;
    uint32_t minor = 0;
    if (!tarvocon_from_file) {
        d->gl_data = getline_init();
        if (d->gl_data == NULL) {
            vel_printmsg(tarvocon_msg_sc_pkdread(), VEL_SEVERITY_NOTICE);
            return 1;
        }
    }
    if (tarvocon_read_bag_version("Major version> ", d->gl_data, &major) != 0 ||
        tarvocon_read_bag_version("Minor version> ", d->gl_data, &minor) != 0) {
        return 1;
    }
    int rc = bag_generic_encode_init(bag_name, major, minor, 0, &d->encoder);
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_encoder_err(), VEL_SEVERITY_WARNING,
                     errcode_strerror(rc));
        return 1;
    }
    rc = bag_generic_encode_get_context(d->encoder, &d->context);
    if (rc != 0) {
        printf("Error getting initial context: %s\n", errcode_strerror(rc));
        return 1;
    }
    int last = 0;
    while (!last) {
        if (tarvocon_bag_step(d, &last) != 0) {
            return 1;
        }
    }
    rc = bag_generic_encode_finish(d->context, bag, bag_size);
    if (rc != 0) {
        vel_printmsg(tarvocon_msg_bag_create_err(), VEL_SEVERITY_WARNING,
                     errcode_strerror(rc));
        return 1;
    }
    return 0;
}

static void tarvocon_bag_dialogue_release(tarvocon_bag_dialogue_td *d)
{
    free(d->choices);
    free(d->opaque_bytes);
    bag_generic_encode_context_free(d->next_context);
    bag_generic_encode_context_free(d->context);
    if (d->encoder != NULL) {
        bag_generic_encode_done(d->encoder);
    }
    if (d->gl_data != NULL) {
        getline_free(d->gl_data);
    }
}

int tarvocon_create_bag(char *bag_name, bag_td **bag, uint32_t *bag_size)
{
    assert(bag_name != NULL);
    assert(bag != NULL);
    assert(bag_size != NULL);
    tarvocon_bag_dialogue_td *d =
        (tarvocon_bag_dialogue_td *)calloc(1, sizeof(tarvocon_bag_dialogue_td));
    assert(d != NULL);
    int rc = tarvocon_bag_dialogue(d, bag_name, bag, bag_size);
    tarvocon_bag_dialogue_release(d);
    free(d);
    return rc;
}
