/*
 * The string buffer in which the engine writes a completed or expanded
 * line. It starts at 512 zero bytes and grows to the smallest power of two
 * that holds what it must; its text passes to the caller of the entry
 * operation or is freed with completion_string_buffer_clean.
 */
#include <assert.h>
#include <stdlib.h>
#include <string.h>

#include "tarvocon_completion_clone/completion.h"

static const uint32_t COMPLETION_BUFFER_START = 512;

int completion_string_buffer_init(completion_string_buffer_td *buffer)
{
    assert(buffer != nullptr);
    buffer->data = (char *)calloc(COMPLETION_BUFFER_START, 1);
    buffer->length = 0;
    buffer->size = buffer->data != nullptr ? COMPLETION_BUFFER_START : 0;
    return buffer->data != nullptr ? 0 : COMPLETION_ERR_NO_MEMORY;
}

void completion_string_buffer_clean(completion_string_buffer_td *buffer)
{
    assert(buffer != nullptr);
    free(buffer->data);
    buffer->data = nullptr;
    buffer->length = 0;
    buffer->size = 0;
}

/* Makes room for `needed` bytes in all (text and NUL included). */
static int completion_string_buffer_reserve(completion_string_buffer_td *buffer,
                                            uint64_t needed)
{
    if (needed <= buffer->size)
        return 0;
    uint64_t size = buffer->size != 0 ? buffer->size : COMPLETION_BUFFER_START;
    while (size < needed)
        size *= 2;
    if (size > UINT32_MAX)
        return COMPLETION_ERR_NO_MEMORY;
    char *data = (char *)realloc(buffer->data, size);
    if (data == nullptr)
        return COMPLETION_ERR_NO_MEMORY;
    memset(data + buffer->length, 0, size - buffer->length);
    buffer->data = data;
    buffer->size = (uint32_t)size;
    return 0;
}

static void completion_string_buffer_put(completion_string_buffer_td *buffer,
                                         const char *text, size_t length)
{
    memcpy(buffer->data + buffer->length, text, length);
    buffer->length += (uint32_t)length;
    buffer->data[buffer->length] = '\0';
}

int completion_string_buffer_append(completion_string_buffer_td *buffer,
                                    const char *text, int open_quote)
{
    if (buffer == nullptr || buffer->data == nullptr || text == nullptr)
        return COMPLETION_ERR_INVALID;
    size_t length = strlen(text);
    int quoted = length >= 2 && strchr(text, ' ') != nullptr;
    int code = completion_string_buffer_reserve(
        buffer, (uint64_t)buffer->length + length + (quoted ? 3 : 1));
    if (code != 0)
        return code;
    if (quoted)
        completion_string_buffer_put(buffer, "\"", 1);
    completion_string_buffer_put(buffer, text, length);
    if (quoted && !open_quote)
        completion_string_buffer_put(buffer, "\"", 1);
    return 0;
}

int completion_string_buffer_join(completion_string_buffer_td *buffer,
                                  char *const *tokens, uint32_t n)
{
    if (n == 0 || tokens == nullptr)
        return COMPLETION_ERR_INVALID;
    for (uint32_t i = 0; i < n; i++) {
        const char *text = tokens[i][0] == '\0' ? "\"\"" : tokens[i];
        int code = 0;
        if (i > 0)
            code = completion_string_buffer_append(buffer, " ", 0);
        if (code == 0)
            code = completion_string_buffer_append(buffer, text, 0);
        if (code != 0)
            return code;
    }
    return 0;
}
