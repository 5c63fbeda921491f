#include "libproc_standin.h"
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

int proc_listpidspath(uint32_t type, uint32_t typeinfo, const char *path, uint32_t pathflags,
    void *buffer, int buffersize)
{
    s_Calls.append({type, typeinfo, QByteArray(path), pathflags, buffer != nullptr, buffersize});
    if (s_Answers.isEmpty()) {
        errno = EINVAL;
        return -1;
    }
    const LibprocStandin::Answer answer = s_Answers.takeFirst();
    // Scribble over what the caller may read, so that copying ids out would show.
    if (buffer && buffersize > 0)
        std::memset(buffer, 0x5a, size_t(buffersize));
    if (answer.result < 0)
        errno = answer.error;
    return answer.result;
}
