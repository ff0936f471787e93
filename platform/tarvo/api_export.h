// The C interface with default visibility: the library is compiled with
// hidden visibility and exports exactly the functions declared here.
#ifndef TARVO_API_EXPORT_H
#define TARVO_API_EXPORT_H
#pragma GCC visibility push(default)
#include "platform/tarvo.h"
#pragma GCC visibility pop
#endif
