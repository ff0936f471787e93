/*
 * Line editor.
 *
 * getline_init: a new reader with its own history, or null when the editor
 *   cannot be set up. Released with getline_free.
 * qn_getline: shows `prompt`, lets the user edit one line and returns it as
 *   a heap string without its newline (the caller frees it), or null at the
 *   end of input (Ctrl-D on an empty line, or end of standard input) or on a
 *   read error. `prefill`, when not null, appears as already typed with the
 *   cursor at its end. *status tells how the line ended:
 *     GETLINE_ENTER     Enter was pressed
 *     GETLINE_COMPLETE  TAB: the line so far is returned
 *     GETLINE_HELP      "?": the line so far is returned, without the "?"
 *     GETLINE_DISCARD   Ctrl-C: the line is discarded (an empty string is
 *                       returned); the process is not signalled
 *   When standard input is not a terminal the prompt is written to standard
 *   output, a line is read plainly and the status is always GETLINE_ENTER.
 * getline_histadd: adds a line to this reader's history (empty lines and a
 *   repeat of the newest entry are not added).
 * getline_history_keep: keeps this reader's history between runs under
 *   `name` (letters, digits, "_" and "-", at most 64): loads the newest
 *   entries kept under that name, and from then on every line
 *   getline_histadd adds is written there too. The file is
 *   $HOME/.local/state/tarvo/history/<name> (directories made 0700 when
 *   missing), mode 0600, cut back to the newest 1000 entries. Several
 *   processes may keep the same name at once. Returns 0, or an errno value
 *   when the history cannot be kept (no absolute HOME, a directory that
 *   cannot be made or written, a reader without a terminal: ENOTTY, called
 *   twice: EALREADY); the reader's history then lives in memory only. Later
 *   write failures are silent. Call it before the reader's first read.
 * yes_or_no: asks `question` followed by " (y/n) " and reads answers until
 *   one starts with y/Y or n/N; returns 1 for yes and 0 for no. An empty
 *   answer gives `default_answer`, unless `insist` is non-zero, in which case
 *   it asks again. End of input, Ctrl-C and a read error give 0.
 *
 * A reader is used from one thread. Several readers may exist at once; only
 * one reads at a time.
 */
#ifndef TARVO_PLATFORM_GETLINE_H
#define TARVO_PLATFORM_GETLINE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct getline_data getline_data;

#define GETLINE_ENTER 1
#define GETLINE_COMPLETE 2
#define GETLINE_HELP 3
#define GETLINE_DISCARD 4

getline_data *getline_init(void);
void getline_free(getline_data *gl);
char *qn_getline(getline_data *gl, const char *prompt, const char *prefill,
                 uint8_t *status);
void getline_histadd(getline_data *gl, const char *line);
int getline_history_keep(getline_data *gl, const char *name);
int yes_or_no(getline_data *gl, const char *question, int default_answer,
              int insist);

#ifdef __cplusplus
}
#endif

#endif
