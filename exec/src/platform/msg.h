/*
 * Message printer and error texts.
 *
 * vel_printmsg(def, severity, ...) formats def->format with the arguments,
 * flushes standard output, writes the text to standard error (adding a
 * newline unless the text already ends in one) and sends
 * "TARVO-<severity>-<MNEMONIC>: <text>" to the system log. It never fails as
 * far as the caller is concerned. The caller passes exactly the arguments the
 * format asks for.
 *
 * errcode_strerror(code) returns a text for any error code of the platform
 * (item database, bags, tuples). Unknown codes get a generic text that shows
 * the number. The text is owned by the library and stays valid until the next
 * call for an unknown code; callers never free it. Codes of the file
 * operations may carry a detail sub-code ORed into their low byte; the text
 * then names both.
 *
 * Thread safety: both functions may be called from one thread at a time.
 */
#ifndef TARVO_PLATFORM_MSG_H
#define TARVO_PLATFORM_MSG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Mutable per-message record, owned and used by the printer only. */
typedef struct vel_msg_state_td {
    uint32_t enabled;     /* initialised to 1 */
    uint32_t print_count; /* how often the message was printed */
} vel_msg_state_td;

/* A read-only message definition. Field order is fixed. */
typedef struct vel_msgdef_td {
    uint32_t reserved0;         /* always 0 */
    const char *format;         /* printf-style text */
    vel_msg_state_td *state;    /* printer's record, or null */
    const char *facility;       /* "TARVO" */
    const char *facility_name;  /* "TARVO" */
    const char *mnemonic;       /* e.g. "SC_MISSNAME" */
    uint32_t severity;          /* severity number << 16 */
    uint32_t reserved1;         /* always 0 */
    uint32_t code;              /* message code */
} vel_msgdef_td;

#define VEL_SEVERITY_ERROR 3
#define VEL_SEVERITY_WARNING 4
#define VEL_SEVERITY_NOTICE 5
#define VEL_SEVERITY_INFO 6

void vel_printmsg(const vel_msgdef_td *def, int severity, ...);

const char *errcode_strerror(int32_t code);

#ifdef __cplusplus
}
#endif

#endif
