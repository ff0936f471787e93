/*
 * Option words of a command: each handler keeps one table of the words it
 * accepts and what each sets, and walks its tokens against it. Words are
 * matched without regard to case. For most commands the value is a bit of
 * the word passed to the client; where it is a choice (remove_bulk_op's
 * kind, ping's target) the handler says so beside its table.
 */
#ifndef TARVOCON_OPTION_WORDS_H
#define TARVOCON_OPTION_WORDS_H

#include <stddef.h>
#include <stdint.h>
#include <strings.h>

typedef struct tarvocon_option_word_td {
    const char *word;
    uint32_t bit;
} tarvocon_option_word_td;

/* The entry of the `size` entries of `table` equal to `word` without
 * regard to case, or null. */
static inline const tarvocon_option_word_td *
tarvocon_find_option_in(const tarvocon_option_word_td *table, size_t size,
                        const char *word)
{
    for (size_t i = 0; i < size; i++) {
        if (strcasecmp(word, table[i].word) == 0)
            return &table[i];
    }
    return nullptr;
}

template <size_t N>
static inline const tarvocon_option_word_td *
tarvocon_find_option_word(const tarvocon_option_word_td (&table)[N],
                          const char *word)
{
    return tarvocon_find_option_in(table, N, word);
}

#endif
