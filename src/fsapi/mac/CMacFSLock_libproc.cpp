// Implementation notes
//
// proc_listpidspath() is asked twice: once for the size, then for the list. The
// second call passes the element count where the call expects bytes, so at most a
// quarter of the array can be filled; and the ids are never copied out, only their
// number. Callers only ask whether the list is empty, which both quirks preserve,
// and other tools that read this library's lists depend on the sizes, so they stay.

#if !defined(__APPLE__) && !defined(BV_LIBPROC_STANDIN)
#error "CMacFSLock_libproc.cpp needs libproc (macOS); tests build it against stand-ins."
#endif

#include "CMacFSLock.h"

#include "threading/assertions/assertion.h"

#include <libproc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

QList<unsigned int> CMacFSLock::getPidsByPath(QString const &path)
{
    QList<unsigned int> pids;
    const QByteArray utf8 = path.toUtf8();

    const int size = proc_listpidspath(
        PROC_ALL_PIDS, 0, utf8.constData(), PROC_LISTPIDSPATH_EXCLUDE_EVTONLY, nullptr, 0);
    if (size < 0) {
        const int savedErrno = errno;
        // Written here rather than by a helper: the line's prefix names the function.
        BV_CRITICAL() << "proc_listpidspath" << savedErrno << std::strerror(savedErrno);
        return pids;
    }

    int count = size / int(sizeof(pid_t));
    pid_t *buffer = static_cast<pid_t *>(std::calloc(size_t(count > 0 ? count : 1), sizeof(pid_t)));
    if (!buffer)
        return pids;
    const int listed = proc_listpidspath(
        PROC_ALL_PIDS, 0, utf8.constData(), PROC_LISTPIDSPATH_EXCLUDE_EVTONLY, buffer, count);
    if (listed < 0) {
        const int savedErrno = errno;
        BV_CRITICAL() << "proc_listpidspath" << savedErrno << std::strerror(savedErrno);
        std::free(buffer);
        return pids;
    }
    if (size >= listed)
        count = listed / int(sizeof(pid_t));

    pids.reserve(count);
    for (int i = 0; i < count; ++i)
        pids.append(0);
    std::free(buffer);
    return pids;
}
