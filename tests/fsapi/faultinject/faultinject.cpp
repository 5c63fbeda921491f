// bv_faultinject: makes chosen system calls fail, for tests that need errors which root
// would never see (root ignores permission bits) or that a disk rarely gives on demand.
// Load it with LD_PRELOAD; in a sanitized program the sanitizer runtime must come first:
//     LD_PRELOAD="$(gcc -print-file-name=libasan.so):/path/libbv_faultinject.so"
//
// Each variable names a fragment; a call fails when the path it works on contains that
// fragment (a path relative to a directory descriptor is matched as given). The errno is
// EACCES, EIO, ENOSPC, EINTR or a number; left out, it is the default shown. EINTR fails
// only the first matching call, as a signal would interrupt it once.
//
//   BV_FAULT_OPEN=<fragment>[:<errno>]    open, open64, openat, openat64, opendir (EACCES)
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
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace {

struct Rule
{
    std::string fragment; // empty: the rule is off
    long long limit = 0;
    int error = 0;
    mutable bool interrupted = false;
};

// "<fragment>[:<bytes>][:<errno>]"; the fragment runs up to the first ':'.
Rule parse(const char *variable, int fallback, bool withLimit = false)
{
    const char *value = std::getenv(variable);
    if (!value)
        return {};
    const char *colon = std::strchr(value, ':');
    Rule rule {colon ? std::string(value, colon) : std::string(value)};
    const char *rest = colon ? colon + 1 : "";
    if (withLimit) {
        rule.limit = std::atoll(rest);
        rest = std::strchr(rest, ':') ? std::strchr(rest, ':') + 1 : "";
    }
    const std::string name(rest);
    rule.error = name == "EACCES" ? EACCES
        : name == "EIO"           ? EIO
        : name == "ENOSPC"        ? ENOSPC
        : name == "EINTR"         ? EINTR
        : std::atoi(rest) > 0     ? std::atoi(rest)
                                  : fallback;
    return rule;
}

struct Rules
{
    Rule open = parse("BV_FAULT_OPEN", EACCES);
    Rule read = parse("BV_FAULT_READ", EIO);
    Rule write = parse("BV_FAULT_WRITE", ENOSPC, true);
    Rule unlink = parse("BV_FAULT_UNLINK", EACCES);
    bool dtUnknown = std::getenv("BV_FAULT_DTUNKNOWN")
        && std::strcmp(std::getenv("BV_FAULT_DTUNKNOWN"), "1") == 0;
};

const Rules &rules()
{
    static const Rules loaded;
    return loaded;
}

// Whether the rule makes a call on path fail; when it does, errno is set for the failure.
bool hits(const Rule &rule, const char *path)
{
    const bool hit = !rule.fragment.empty() && path && std::strstr(path, rule.fragment.c_str())
        && !(rule.error == EINTR && std::exchange(rule.interrupted, true));
    if (hit)
        errno = rule.error;
    return hit;
}

bool hitsFd(const Rule &rule, int fd)
{
    char path[4096] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    return !rule.fragment.empty() && ::readlink(link.c_str(), path, sizeof path - 1) > 0
        && hits(rule, path);
}

} // namespace

#define BV_REAL(name)                                                                              \
    static const auto real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))
// A wrapper that answers `failed` when `fails` holds and otherwise calls the real function.
#define BV_WRAP(type, name, params, fails, failed, args)                                           \
    type name params                                                                               \
    {                                                                                              \
        if (fails)                                                                                 \
            return failed;                                                                         \
        BV_REAL(name);                                                                             \
        return real args;                                                                          \
    }
// The mode argument is there only when a file may be made.
#define BV_OPEN(name, params, args)                                                                \
    int name params                                                                                \
    {                                                                                              \
        mode_t mode = 0;                                                                           \
        if ((flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE) {                               \
            va_list list;                                                                          \
            va_start(list, flags);                                                                 \
            mode = mode_t(va_arg(list, int));                                                      \
            va_end(list);                                                                          \
        }                                                                                          \
        if (hits(rules().open, path))                                                              \
            return -1;                                                                             \
        BV_REAL(name);                                                                             \
        return real args;                                                                          \
    }
#define BV_READDIR(name, entry)                                                                    \
    struct entry *name(DIR *dir)                                                                   \
    {                                                                                              \
        BV_REAL(name);                                                                             \
        struct entry *found = real(dir);                                                           \
        if (found && rules().dtUnknown)                                                            \
            found->d_type = DT_UNKNOWN;                                                            \
        return found;                                                                              \
    }

extern "C" {

// clang-format off
BV_OPEN(open, (const char *path, int flags, ...), (path, flags, mode))
BV_OPEN(open64, (const char *path, int flags, ...), (path, flags, mode))
BV_OPEN(openat, (int dirfd, const char *path, int flags, ...), (dirfd, path, flags, mode))
BV_OPEN(openat64, (int dirfd, const char *path, int flags, ...), (dirfd, path, flags, mode))
BV_WRAP(DIR *, opendir, (const char *path), hits(rules().open, path), nullptr, (path))
BV_WRAP(ssize_t, read, (int fd, void *data, size_t count), hitsFd(rules().read, fd), -1, (fd, data, count))
BV_WRAP(int, unlink, (const char *path), hits(rules().unlink, path), -1, (path))
BV_WRAP(int, rmdir, (const char *path), hits(rules().unlink, path), -1, (path))
BV_WRAP(int, remove, (const char *path), hits(rules().unlink, path), -1, (path))
BV_WRAP(int, unlinkat, (int dirfd, const char *path, int flags), hits(rules().unlink, path), -1, (dirfd, path, flags))
BV_READDIR(readdir, dirent)
BV_READDIR(readdir64, dirent64)
// clang-format on

ssize_t write(int fd, const void *data, size_t count)
{
    const Rule &rule = rules().write;
    if (hitsFd(rule, fd)) {
        const off_t offset = ::lseek(fd, 0, SEEK_CUR);
        if (offset < 0 || offset >= rule.limit)
            return -1;
        count = size_t(std::min<long long>(rule.limit - offset, (long long)count));
    }
    BV_REAL(write);
    return real(fd, data, count);
}

} // extern "C"
