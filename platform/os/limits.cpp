// Data-size limits of the process.

#include <platform/os.h>

#include <cerrno>
#include <sys/resource.h>

extern "C" uint64_t platform_get_process_max_rlimit_data(void) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_DATA, &limit) != 0 || limit.rlim_max == RLIM_INFINITY)
        return UINT64_MAX;
    return static_cast<uint64_t>(limit.rlim_max);
}

extern "C" int wd_set_rlimit(int resource, uint64_t limit) {
    rlimit value{};
    value.rlim_cur = limit == UINT64_MAX ? RLIM_INFINITY : static_cast<rlim_t>(limit);
    value.rlim_max = value.rlim_cur;
    if (::setrlimit(static_cast<__rlimit_resource>(resource), &value) != 0)
        return errno;
    return 0;
}
