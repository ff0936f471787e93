/*
 * Whether the item database client library is installed.
 *
 * The console binds only while the client library file is readable. Its
 * path is fixed when the console is built (TARVOCON_CLIENT_LIBRARY); the
 * project's run script points it at the library it built. This function sits
 * alone in its file so that a test program can link a copy of it that checks
 * a path which never exists.
 */
#include <unistd.h>

#include "tarvocon.h"

#ifndef TARVOCON_CLIENT_LIBRARY
#define TARVOCON_CLIENT_LIBRARY "/pkg/lib/libtarvo.so"
#endif

/* A success is remembered for the rest of the run; a failure is not, so that
 * a library installed while the console runs is found at the next bind. */
static int tarvocon_library_found = 0;

int tarvocon_library_present(void)
{
    if (!tarvocon_library_found && access(TARVOCON_CLIENT_LIBRARY, R_OK) == 0)
        tarvocon_library_found = 1;
    return tarvocon_library_found;
}
