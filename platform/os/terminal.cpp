// tcgetsize and qn_close.

#include <platform/os.h>

#include <cerrno>
#include <sys/ioctl.h>
#include <unistd.h>

extern "C" int tcgetsize(int fd, int *rows, int *cols) {
    if (rows == nullptr) {
        errno = EINVAL;
        return -1;
    }
    winsize size{};
    if (::ioctl(fd, TIOCGWINSZ, &size) != 0)
        return -1;
    *rows = size.ws_row;
    if (cols != nullptr)
        *cols = size.ws_col;
    return 0;
}

extern "C" int qn_close(int fd) {
    // Linux releases the descriptor even when close() reports EINTR; calling
    // it again would at best fail with EBADF and at worst close a descriptor
    // that was opened in between. So an interrupted close counts as done.
    if (::close(fd) == 0 || errno == EINTR)
        return 0;
    return -1;
}
