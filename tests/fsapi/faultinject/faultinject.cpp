// bv_faultinject: makes chosen system calls fail, for tests that need errors which root
// would never see (root ignores permission bits) or that a disk rarely gives on demand.
// Load it with LD_PRELOAD; in a sanitized program the sanitizer runtime must come first:
//     LD_PRELOAD="$(gcc -print-file-name=libasan.so):/path/libbv_faultinject.so"
//
// Each variable names a fragment; a call fails when the path it works on contains that
// fragment (a path relative to a directory descriptor is matched as given). The errno is
// EACCES, EIO, ENOSPC, EINTR or a number; left out, it is the default shown. EINTR fails
// only the first matching call, as a signal would interrupt it once: the variable is then
// removed. The variables are read at each call, so a program may set them as it goes.
//
//   BV_FAULT_READ=<fragment>[:<errno>]    read from a file whose path matches        (EIO)
//   BV_FAULT_WRITE=<fragment>:<bytes>[:<errno>]
//                                         write to a matching file: once the file offset
//                                         reaches <bytes> the call fails; a write that
//                                         crosses it is cut short there           (ENOSPC)
//   BV_FAULT_UNLINK=<fragment>[:<errno>]  unlink, unlinkat, rmdir, remove        (EACCES)
//   BV_FAULT_DTUNKNOWN=1                  readdir reports every entry's type as DT_UNKNOWN,
//                                         as file systems without d_type do
//
// The paths of read and write descriptors are found through /proc/self/fd.

#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <string>
#include <unistd.h>

namespace {

// Whether the rule in variable ("<fragment>[:<bytes>][:<errno>]") makes a call on path
// fail; when it does, errno is set for the failure and *limit is the rule's byte count.
bool hits(const char *variable, int fallback, const char *path, long long *limit = nullptr)
{
    const char *value = std::getenv(variable);
    const char *colon = value ? std::strchr(value, ':') : nullptr;
    const std::string fragment
        = colon ? std::string(value, colon) : std::string(value ? value : "");
    if (fragment.empty() || !path || !std::strstr(path, fragment.c_str()))
        return false;
    const char *rest = colon ? colon + 1 : "";
    if (limit) {
        *limit = std::atoll(rest);
        rest = std::strchr(rest, ':') ? std::strchr(rest, ':') + 1 : "";
    }
    const std::string name(rest);
    errno = name == "EACCES"  ? EACCES
        : name == "EIO"       ? EIO
        : name == "ENOSPC"    ? ENOSPC
        : name == "EINTR"     ? EINTR
        : std::atoi(rest) > 0 ? std::atoi(rest)
                              : fallback;
    if (errno == EINTR)
        ::unsetenv(variable);
    return true;
}

bool hitsFd(const char *variable, int fallback, int fd, long long *limit = nullptr)
{
    char path[4096] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    return std::getenv(variable) && ::readlink(link.c_str(), path, sizeof path - 1) > 0
        && hits(variable, fallback, path, limit);
}

} // namespace

#define BV_REAL(name)                                                                              \
    static const auto real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))
// A wrapper that answers -1 when `fails` holds and otherwise calls the real function.
#define BV_WRAP(type, name, params, fails, args)                                                   \
    type name params                                                                               \
    {                                                                                              \
        if (fails)                                                                                 \
            return -1;                                                                             \
        BV_REAL(name);                                                                             \
        return real args;                                                                          \
    }
#define BV_READDIR(name, entry)                                                                    \
    struct entry *name(DIR *dir)                                                                   \
    {                                                                                              \
        BV_REAL(name);                                                                             \
        struct entry *found = real(dir);                                                           \
        const char *unknown = std::getenv("BV_FAULT_DTUNKNOWN");                                   \
        if (found && unknown && std::strcmp(unknown, "1") == 0)                                    \
            found->d_type = DT_UNKNOWN;                                                            \
        return found;                                                                              \
    }

extern "C" {

// clang-format off
BV_WRAP(ssize_t, read, (int fd, void *data, size_t count), hitsFd("BV_FAULT_READ", EIO, fd), (fd, data, count))
BV_WRAP(int, unlink, (const char *path), hits("BV_FAULT_UNLINK", EACCES, path), (path))
BV_WRAP(int, rmdir, (const char *path), hits("BV_FAULT_UNLINK", EACCES, path), (path))
BV_WRAP(int, remove, (const char *path), hits("BV_FAULT_UNLINK", EACCES, path), (path))
BV_WRAP(int, unlinkat, (int dirfd, const char *path, int flags), hits("BV_FAULT_UNLINK", EACCES, path), (dirfd, path, flags))
BV_READDIR(readdir, dirent)
BV_READDIR(readdir64, dirent64)
// clang-format on

ssize_t write(int fd, const void *data, size_t count)
{
    long long limit = 0;
    if (hitsFd("BV_FAULT_WRITE", ENOSPC, fd, &limit)) {
        const off_t offset = ::lseek(fd, 0, SEEK_CUR);
        if (offset < 0 || offset >= limit)
            return -1;
        count = size_t(std::min<long long>(limit - offset, (long long)count));
    }
    BV_REAL(write);
    return real(fd, data, count);
}

} // extern "C"
