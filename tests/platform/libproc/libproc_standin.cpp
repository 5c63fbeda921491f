#include "libproc.h"

#include <cerrno>
#include <cstring>

namespace {
QList<LibprocStandin::Answer> s_Answers;
QList<LibprocStandin::Call> s_Calls;
} // namespace

void LibprocStandin::script(const QList<Answer> &answers)
{
    s_Answers = answers;
    s_Calls.clear();
}

QList<LibprocStandin::Call> LibprocStandin::calls()
{
    return s_Calls;
}

int proc_listpidspath(
    uint32_t type, uint32_t, const char *path, uint32_t pathflags, void *buffer, int buffersize)
{
    s_Calls.append({QByteArray(path), buffer ? buffersize : -1});
    const LibprocStandin::Answer answer = s_Answers.value(0, {-1, EINVAL});
    if (!s_Answers.isEmpty())
        s_Answers.removeFirst();
    if (type != PROC_ALL_PIDS || pathflags != PROC_LISTPIDSPATH_EXCLUDE_EVTONLY) {
        errno = EINVAL; // what a wrong query gets, logged as a failure the tests notice
        return -1;
    }
    // Scribble over what the caller may read, so that copying ids out would show.
    if (buffer && buffersize > 0)
        std::memset(buffer, 0x5a, size_t(buffersize));
    if (answer.result < 0)
        errno = answer.error;
    return answer.result;
}
