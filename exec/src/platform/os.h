/*
 * Process, terminal and address helpers.
 *
 * spawnp: starts the program `file`, looked up on PATH, with `argv` and
 *   `envp`. Descriptor i of the child (0 <= i < fd_count) is a copy of
 *   fd_map[i] of the caller; fd_map[i] == -1 leaves descriptor i closed in
 *   the child. Other descriptors of the caller are not inherited unless they
 *   lack close-on-exec. Signal dispositions and the signal mask are reset to
 *   their defaults in the child. `inherit` is reserved and must be null.
 *   Returns the child's process id, or -1 with errno set.
 * tcgetsize: the size of the terminal on `fd`. Returns 0 and fills *rows and
 *   (when cols is not null) *cols, or -1 with errno set when fd is not a
 *   terminal.
 * qn_close: close(2) that survives EINTR (Linux has released the
 *   descriptor by then, so an interrupted close counts as done and is
 *   not repeated). Returns 0 or -1 with errno set.
 * platform_get_process_max_rlimit_data: the largest data-segment size this
 *   process may set (the hard limit of RLIMIT_DATA; RLIM_INFINITY as
 *   0xFFFFFFFFFFFFFFFF).
 * wd_set_rlimit: sets both limits of `resource` (an RLIMIT_ number) to
 *   `limit`. Returns 0, or the errno value of the failure.
 * strlwr: lower-cases the string in place and returns it.
 * qn_inet_addr: dotted-decimal IPv4 text to an address in network byte
 *   order; 0xFFFFFFFF (INADDR_NONE) for text that is not an address.
 * inet_ntoa_r: writes the dotted-decimal text of `in` into buf (room for
 *   buflen bytes, 16 suffice) and returns buf, or null when buf is too small.
 *
 * All functions are safe to call from any thread; none keeps state.
 */
#ifndef TARVO_PLATFORM_OS_H
#define TARVO_PLATFORM_OS_H

#include <netinet/in.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct inheritance;

pid_t spawnp(const char *file, int fd_count, const int fd_map[],
             const struct inheritance *inherit, char *const argv[],
             char *const envp[]);
int tcgetsize(int fd, int *rows, int *cols);
int qn_close(int fd);
uint64_t platform_get_process_max_rlimit_data(void);
int wd_set_rlimit(int resource, uint64_t limit);
char *strlwr(char *s);
in_addr_t qn_inet_addr(const char *cp);
char *inet_ntoa_r(struct in_addr in, char *buf, int buflen);

#ifdef __cplusplus
}
#endif

#endif
