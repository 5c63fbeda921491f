#include "CAuthorization.h"

#include "CAuthorizationBackend.h"

#include "threading/assertions/assertion.h"

#include <QCoreApplication>
#include <QIODevice>
#include <QStringList>
#include <QTextStream>

#include <cerrno>
#include <csignal>

#include <pthread.h>
#include <unistd.h>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/system/mac/CAuthorization"

using namespace AuthorizationBackend;

namespace {

// The product's own identifier with ".admin": the right used when no name space is given.
const char C_DEFAULT_ADMIN_RIGHT[] = "com.brisvane.brisvane.admin";

const int C_READ_CHUNK = 128;

// A shell that ends before it has read the whole script must not take the program down
// with SIGPIPE: the write fails instead, and the stream reports it.
class SigPipeBlocker
{
public:
    SigPipeBlocker()
    {
        sigset_t set = pipeSet();
        m_WasBlocked = ::pthread_sigmask(SIG_BLOCK, &set, &m_Previous) != 0
            || sigismember(&m_Previous, SIGPIPE);
    }
    ~SigPipeBlocker()
    {
        if (m_WasBlocked)
            return;
        sigset_t set = pipeSet();
        sigset_t pending;
        sigemptyset(&pending);
        if (::sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE)) {
            int signal = 0;
            ::sigwait(&set, &signal);
        }
        ::pthread_sigmask(SIG_SETMASK, &m_Previous, nullptr);
    }
    Q_DISABLE_COPY(SigPipeBlocker)

private:
    static sigset_t pipeSet()
    {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGPIPE);
        return set;
    }

    sigset_t m_Previous;
    bool m_WasBlocked = false;
};

} // namespace

CAuthorization::CAuthorization()
    : m_AuthorizationRef(nullptr)
{
    initialize();
}

CAuthorization::~CAuthorization()
{
    finalize();
}

void CAuthorization::initialize()
{
    const Status status = createSession(&m_AuthorizationRef);
    if (status != C_STATUS_SUCCESS) {
        m_AuthorizationRef = nullptr;
        BV_CRITICAL() << "failed to connect to authorization services. Err:" << status;
    }
}

void CAuthorization::finalize()
{
    // A session that never opened has nothing to free: it fails quietly, as promised.
    if (!m_AuthorizationRef)
        return;
    const Status status = freeSession(m_AuthorizationRef);
    if (status != C_STATUS_SUCCESS)
        BV_CRITICAL() << "failed to free authorization reference. Err:" << status;
    m_AuthorizationRef = nullptr;
}

QString CAuthorization::getReverseDomainNameString()
{
    static QString reverseDomainName;
    if (!reverseDomainName.isEmpty())
        return reverseDomainName;
    if (!QCoreApplication::instance())
        return QString();

    QStringList parts = QCoreApplication::organizationDomain().split('.', Qt::SkipEmptyParts);
    parts.prepend(QCoreApplication::applicationName());
    QStringList reversed;
    for (auto it = parts.crbegin(); it != parts.crend(); ++it)
        reversed << it->toLower();
    reverseDomainName = reversed.join('.');
    return reverseDomainName;
}

QString CAuthorization::getRightNameSpace(const QString &name)
{
    return QStringLiteral("%1.%2").arg(getReverseDomainNameString(), name);
}

bool CAuthorization::acquireRight(QLatin1String rightName)
{
    if (!m_AuthorizationRef)
        return false;
    const QByteArray name(rightName.data(), rightName.size());
    const Status status = copyRight(m_AuthorizationRef, name.constData());
    if (status == C_STATUS_SUCCESS)
        return true;
    BV_CRITICAL().noquote()
        << QStringLiteral("failed to aquire right %1. Err: %2").arg(QString(rightName)).arg(status);
    return false;
}

bool CAuthorization::authorizeAsAdmin(const QString &rightNameSpace)
{
    const QByteArray rightName = rightNameSpace.isEmpty()
        ? QByteArray(C_DEFAULT_ADMIN_RIGHT)
        : QStringLiteral("%1.admin").arg(rightNameSpace).toLatin1();

    // An existing definition is enough: the privileged start asks for the password itself.
    const Status status = getRight(rightName.constData());
    if (status == C_STATUS_SUCCESS)
        return true;
    if (!m_AuthorizationRef)
        return false;

    if (status != C_STATUS_RIGHT_NOT_DEFINED) {
        BV_CRITICAL() << "failed to authorize as admin. Err:" << status;
        return false;
    }
    const Status setStatus = setAdminRight(m_AuthorizationRef, rightName.constData());
    if (setStatus != C_STATUS_SUCCESS) {
        BV_CRITICAL() << "Could not create default right. Err:" << setStatus;
        return false;
    }
    if (acquireRight(QLatin1String(rightName)))
        return true;
    BV_CRITICAL() << "failed to authorize as admin. Err:" << 0;
    return false;
}

bool CAuthorization::shellExecuteWithPrivileges(const QString &script, QString &output)
{
    output = QString();
    if (!m_AuthorizationRef)
        return false;

    FILE *pipe = nullptr;
    const Status status = executeShell(m_AuthorizationRef, &pipe);
    if (status != C_STATUS_SUCCESS) {
        BV_CRITICAL() << "failed to shell execute with privileges. Err:" << status;
        return false;
    }

    bool handedOver = false;
    {
        const SigPipeBlocker noSigPipe;
        QTextStream stream(pipe, QIODevice::ReadWrite);
        stream.setEncoding(QStringConverter::System);
        if (stream.status() == QTextStream::Ok) {
            // The shell reads its commands from the pipe; "exit 0" on a line of its own ends
            // it even when the script's last line has no line feed.
            stream << script << "\nexit 0" << Qt::endl;
            handedOver = stream.status() == QTextStream::Ok;
        }
    }
    if (!handedOver) {
        ::fclose(pipe);
        return false;
    }

    // Each chunk is decoded on its own, as it arrives.
    const int fd = ::fileno(pipe);
    char buffer[C_READ_CHUNK];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        output += QString::fromLocal8Bit(buffer, qsizetype(got));
    }
    ::fclose(pipe);
    return true;
}
