// Holders: the identity of a bind for locks and writes, and whether the
// process behind one is still alive. A pid alone is not an identity (pids
// are reused), so a holder also carries the process start time from
// /proc/<pid>/stat and the machine's boot id; a random bind id tells the
// binds of one process apart.
#ifndef TARVO_HOLDER_H
#define TARVO_HOLDER_H

#include "store.h"

namespace tarvo {

// A new holder for a bind of the calling process.
Holder new_holder();

// False when the holder's process has ended (or is a zombie), its pid now
// belongs to another process, or the machine has been restarted since. A
// holder made where /proc could not be read (start time 0) is alive while
// its pid is.
bool holder_alive(const Holder &holder);

}  // namespace tarvo

#endif
