// bv_faultinject: makes chosen system calls fail, for tests that need errors which root
// would never see (root ignores permission bits) or that a disk rarely gives on demand.
// Load it with LD_PRELOAD; in a sanitized program the sanitizer runtime must come first:
//     LD_PRELOAD="$(gcc -print-file-name=libasan.so):/path/libbv_faultinject.so"
//
// Each variable names a fragment; a call fails when the path it works on contains that
// fragment. The errno is a name (EACCES, EIO, ENOSPC, EPERM, EROFS, ENOENT, EBUSY, ENOTEMPTY,
// EEXIST, EINVAL, EMFILE, EDQUOT, EFBIG) or a number; it may be left out for the default.
//
//   BV_FAULT_UNLINK=<fragment>[:<errno>]  unlink, unlinkat, rmdir, remove     (EACCES)
//   BV_FAULT_OPEN=<fragment>[:<errno>]    open, openat, creat, fopen, opendir (EACCES)
//   BV_FAULT_READ=<fragment>[:<errno>]    read, pread on a file whose path matches (EIO)
//   BV_FAULT_WRITE=<fragment>:<bytes>[:<errno>]
//                                         write, pwrite to a matching file: once the file
//                                         offset reaches <bytes> the call fails; a write
//                                         that crosses it is cut short there     (ENOSPC)
//   BV_FAULT_MKDIR=<fragment>[:<errno>]   mkdir, mkdirat                      (EACCES)
//   BV_FAULT_RENAME=<fragment>[:<errno>]  rename, renameat: either path matches (EACCES)
//   BV_FAULT_CHMOD=<fragment>[:<errno>]   chmod, fchmodat                     (EPERM)
//   BV_FAULT_UTIME=<fragment>[:<errno>]   utime, utimes, utimensat            (EPERM)
//   BV_FAULT_DTUNKNOWN=1                  readdir reports every entry's type as DT_UNKNOWN,
//                                         as file systems without d_type do
//
// Paths given relative to a directory descriptor are matched with that directory's path
// in front. Descriptors of read and write are matched through /proc/self/fd.

#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

namespace {

struct Rule
{
    bool active = false;
    char fragment[512] = {};
    int error = 0;
    long long limit = 0;
};

struct Rules
{
    Rule unlink, open, read, write, mkdir, rename, chmod, utime;
    bool dtUnknown = false;
};

int parseErrno(const char *text, int fallback)
{
    static const struct
    {
        const char *name;
        int value;
    } names[] = {{"EACCES", EACCES}, {"EIO", EIO}, {"ENOSPC", ENOSPC}, {"EPERM", EPERM},
        {"EROFS", EROFS}, {"ENOENT", ENOENT}, {"EBUSY", EBUSY}, {"ENOTEMPTY", ENOTEMPTY},
        {"EEXIST", EEXIST}, {"EINVAL", EINVAL}, {"EMFILE", EMFILE}, {"EDQUOT", EDQUOT},
        {"EFBIG", EFBIG}, {"EINTR", EINTR}};
    if (!text || !*text)
        return fallback;
    for (const auto &n : names)
        if (std::strcmp(text, n.name) == 0)
            return n.value;
    const int value = std::atoi(text);
    return value > 0 ? value : fallback;
}

// "<fragment>[:<bytes>][:<errno>]"; the fragment runs up to the first ':'.
void parseRule(Rule &rule, const char *variable, int fallback, bool withLimit)
{
    const char *value = std::getenv(variable);
    if (!value || !*value)
        return;
    const char *colon = std::strchr(value, ':');
    const size_t length = colon ? size_t(colon - value) : std::strlen(value);
    if (length == 0 || length >= sizeof rule.fragment)
        return;
    std::memcpy(rule.fragment, value, length);
    rule.fragment[length] = '\0';
    const char *rest = colon ? colon + 1 : "";
    if (withLimit) {
        rule.limit = std::atoll(rest);
        const char *next = std::strchr(rest, ':');
        rest = next ? next + 1 : "";
    }
    rule.error = parseErrno(rest, fallback);
    rule.active = true;
}

const Rules &rules()
{
    static const Rules loaded = [] {
        Rules r;
        parseRule(r.unlink, "BV_FAULT_UNLINK", EACCES, false);
        parseRule(r.open, "BV_FAULT_OPEN", EACCES, false);
        parseRule(r.read, "BV_FAULT_READ", EIO, false);
        parseRule(r.write, "BV_FAULT_WRITE", ENOSPC, true);
        parseRule(r.mkdir, "BV_FAULT_MKDIR", EACCES, false);
        parseRule(r.rename, "BV_FAULT_RENAME", EACCES, false);
        parseRule(r.chmod, "BV_FAULT_CHMOD", EPERM, false);
        parseRule(r.utime, "BV_FAULT_UTIME", EPERM, false);
        const char *unknown = std::getenv("BV_FAULT_DTUNKNOWN");
        r.dtUnknown = unknown && *unknown && std::strcmp(unknown, "0") != 0;
        return r;
    }();
    return loaded;
}

template<typename Function> Function next(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool fdPath(int fd, char *buffer, size_t size)
{
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t length = ::readlink(link, buffer, size - 1);
    if (length <= 0)
        return false;
    buffer[length] = '\0';
    return true;
}

bool matches(const Rule &rule, int dirfd, const char *path)
{
    if (!rule.active || !path)
        return false;
    if (std::strstr(path, rule.fragment))
        return true;
    char folder[4096];
    if (path[0] != '/' && dirfd != AT_FDCWD && fdPath(dirfd, folder, sizeof folder)) {
        char whole[8192];
        std::snprintf(whole, sizeof whole, "%s/%s", folder, path);
        return std::strstr(whole, rule.fragment) != nullptr;
    }
    return false;
}

bool matchesFd(const Rule &rule, int fd)
{
    char path[4096];
    return rule.active && fdPath(fd, path, sizeof path) && std::strstr(path, rule.fragment);
}

int fail(const Rule &rule)
{
    errno = rule.error;
    return -1;
}

bool hasMode(int flags)
{
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
}

// How many of `count` bytes at `offset` may still be written: -1 when none may.
ssize_t writable(int fd, size_t count, off_t offset)
{
    const Rule &rule = rules().write;
    if (!matchesFd(rule, fd))
        return ssize_t(count);
    if (offset < 0)
        offset = ::lseek(fd, 0, SEEK_CUR);
    if (offset < 0 || offset >= rule.limit)
        return -1;
    const long long room = rule.limit - offset;
    return room < (long long)count ? ssize_t(room) : ssize_t(count);
}

} // namespace

extern "C" {

#define BV_OPEN_MODE(flags)                                                                        \
    mode_t mode = 0;                                                                               \
    if (hasMode(flags)) {                                                                          \
        va_list args;                                                                              \
        va_start(args, flags);                                                                     \
        mode = mode_t(va_arg(args, int));                                                          \
        va_end(args);                                                                              \
    }

int open(const char *path, int flags, ...)
{
    BV_OPEN_MODE(flags)
    if (matches(rules().open, AT_FDCWD, path))
        return fail(rules().open);
    static auto real = next<int (*)(const char *, int, ...)>("open");
    return real(path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    BV_OPEN_MODE(flags)
    if (matches(rules().open, AT_FDCWD, path))
        return fail(rules().open);
    static auto real = next<int (*)(const char *, int, ...)>("open64");
    return real(path, flags, mode);
}

int openat(int dirfd, const char *path, int flags, ...)
{
    BV_OPEN_MODE(flags)
    if (matches(rules().open, dirfd, path))
        return fail(rules().open);
    static auto real = next<int (*)(int, const char *, int, ...)>("openat");
    return real(dirfd, path, flags, mode);
}

int openat64(int dirfd, const char *path, int flags, ...)
{
    BV_OPEN_MODE(flags)
    if (matches(rules().open, dirfd, path))
        return fail(rules().open);
    static auto real = next<int (*)(int, const char *, int, ...)>("openat64");
    return real(dirfd, path, flags, mode);
}

int __open_2(const char *path, int flags)
{
    if (matches(rules().open, AT_FDCWD, path))
        return fail(rules().open);
    static auto real = next<int (*)(const char *, int)>("__open_2");
    return real(path, flags);
}

int __open64_2(const char *path, int flags)
{
    if (matches(rules().open, AT_FDCWD, path))
        return fail(rules().open);
    static auto real = next<int (*)(const char *, int)>("__open64_2");
    return real(path, flags);
}

int creat(const char *path, mode_t mode)
{
    if (matches(rules().open, AT_FDCWD, path))
        return fail(rules().open);
    static auto real = next<int (*)(const char *, mode_t)>("creat");
    return real(path, mode);
}

FILE *fopen(const char *path, const char *how)
{
    if (matches(rules().open, AT_FDCWD, path)) {
        errno = rules().open.error;
        return nullptr;
    }
    static auto real = next<FILE *(*)(const char *, const char *)>("fopen");
    return real(path, how);
}

FILE *fopen64(const char *path, const char *how)
{
    if (matches(rules().open, AT_FDCWD, path)) {
        errno = rules().open.error;
        return nullptr;
    }
    static auto real = next<FILE *(*)(const char *, const char *)>("fopen64");
    return real(path, how);
}

DIR *opendir(const char *path)
{
    if (matches(rules().open, AT_FDCWD, path)) {
        errno = rules().open.error;
        return nullptr;
    }
    static auto real = next<DIR *(*)(const char *)>("opendir");
    return real(path);
}

ssize_t read(int fd, void *buffer, size_t count)
{
    if (matchesFd(rules().read, fd))
        return fail(rules().read);
    static auto real = next<ssize_t (*)(int, void *, size_t)>("read");
    return real(fd, buffer, count);
}

ssize_t pread(int fd, void *buffer, size_t count, off_t offset)
{
    if (matchesFd(rules().read, fd))
        return fail(rules().read);
    static auto real = next<ssize_t (*)(int, void *, size_t, off_t)>("pread");
    return real(fd, buffer, count, offset);
}

ssize_t write(int fd, const void *buffer, size_t count)
{
    const ssize_t allowed = writable(fd, count, -1);
    if (allowed < 0)
        return fail(rules().write);
    static auto real = next<ssize_t (*)(int, const void *, size_t)>("write");
    return real(fd, buffer, size_t(allowed));
}

ssize_t pwrite(int fd, const void *buffer, size_t count, off_t offset)
{
    const ssize_t allowed = writable(fd, count, offset);
    if (allowed < 0)
        return fail(rules().write);
    static auto real = next<ssize_t (*)(int, const void *, size_t, off_t)>("pwrite");
    return real(fd, buffer, size_t(allowed), offset);
}

int unlink(const char *path)
{
    if (matches(rules().unlink, AT_FDCWD, path))
        return fail(rules().unlink);
    static auto real = next<int (*)(const char *)>("unlink");
    return real(path);
}

int unlinkat(int dirfd, const char *path, int flags)
{
    if (matches(rules().unlink, dirfd, path))
        return fail(rules().unlink);
    static auto real = next<int (*)(int, const char *, int)>("unlinkat");
    return real(dirfd, path, flags);
}

int rmdir(const char *path)
{
    if (matches(rules().unlink, AT_FDCWD, path))
        return fail(rules().unlink);
    static auto real = next<int (*)(const char *)>("rmdir");
    return real(path);
}

int remove(const char *path)
{
    if (matches(rules().unlink, AT_FDCWD, path))
        return fail(rules().unlink);
    static auto real = next<int (*)(const char *)>("remove");
    return real(path);
}

int mkdir(const char *path, mode_t mode)
{
    if (matches(rules().mkdir, AT_FDCWD, path))
        return fail(rules().mkdir);
    static auto real = next<int (*)(const char *, mode_t)>("mkdir");
    return real(path, mode);
}

int mkdirat(int dirfd, const char *path, mode_t mode)
{
    if (matches(rules().mkdir, dirfd, path))
        return fail(rules().mkdir);
    static auto real = next<int (*)(int, const char *, mode_t)>("mkdirat");
    return real(dirfd, path, mode);
}

int rename(const char *from, const char *to)
{
    if (matches(rules().rename, AT_FDCWD, from) || matches(rules().rename, AT_FDCWD, to))
        return fail(rules().rename);
    static auto real = next<int (*)(const char *, const char *)>("rename");
    return real(from, to);
}

int renameat(int fromfd, const char *from, int tofd, const char *to)
{
    if (matches(rules().rename, fromfd, from) || matches(rules().rename, tofd, to))
        return fail(rules().rename);
    static auto real = next<int (*)(int, const char *, int, const char *)>("renameat");
    return real(fromfd, from, tofd, to);
}

int chmod(const char *path, mode_t mode)
{
    if (matches(rules().chmod, AT_FDCWD, path))
        return fail(rules().chmod);
    static auto real = next<int (*)(const char *, mode_t)>("chmod");
    return real(path, mode);
}

int fchmodat(int dirfd, const char *path, mode_t mode, int flags)
{
    if (matches(rules().chmod, dirfd, path))
        return fail(rules().chmod);
    static auto real = next<int (*)(int, const char *, mode_t, int)>("fchmodat");
    return real(dirfd, path, mode, flags);
}

int utime(const char *path, const struct utimbuf *times)
{
    if (matches(rules().utime, AT_FDCWD, path))
        return fail(rules().utime);
    static auto real = next<int (*)(const char *, const struct utimbuf *)>("utime");
    return real(path, times);
}

int utimes(const char *path, const struct timeval times[2])
{
    if (matches(rules().utime, AT_FDCWD, path))
        return fail(rules().utime);
    static auto real = next<int (*)(const char *, const struct timeval *)>("utimes");
    return real(path, times);
}

int utimensat(int dirfd, const char *path, const struct timespec times[2], int flags)
{
    if (matches(rules().utime, dirfd, path))
        return fail(rules().utime);
    static auto real = next<int (*)(int, const char *, const struct timespec *, int)>("utimensat");
    return real(dirfd, path, times, flags);
}

struct dirent *readdir(DIR *dir)
{
    static auto real = next<struct dirent *(*)(DIR *)>("readdir");
    struct dirent *entry = real(dir);
    if (entry && rules().dtUnknown)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

struct dirent64 *readdir64(DIR *dir)
{
    static auto real = next<struct dirent64 *(*)(DIR *)>("readdir64");
    struct dirent64 *entry = real(dir);
    if (entry && rules().dtUnknown)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

} // extern "C"
