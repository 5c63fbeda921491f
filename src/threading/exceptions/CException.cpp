#include "CException.h"

#include <iostream>
#include <mutex>
#include <new>
#include <sstream>

const char *const CException::cNoExceptionMessage
    = "No Additional Exception Information Available !";
std::map<TypeInfo, const char *> CException::s_ExceptionDescriptions;

namespace {
// Exceptions may be built on several threads at once; the map itself is not thread-safe.
std::mutex &descriptionsMutex()
{
    static std::mutex mutex;
    return mutex;
}

const char *orEmpty(const char *text)
{
    return text ? text : "";
}
} // namespace

void CException::registerDescription(const std::type_info &type, const char *description)
{
    try {
        std::lock_guard<std::mutex> lock(descriptionsMutex());
        s_ExceptionDescriptions[TypeInfo(type)] = description;
    } catch (const std::exception &e) {
        std::cerr << e.what() << std::endl;
    }
}

const char *CException::descriptionOf(const std::type_info &type)
{
    std::lock_guard<std::mutex> lock(descriptionsMutex());
    const auto it = s_ExceptionDescriptions.find(TypeInfo(type));
    return it == s_ExceptionDescriptions.end() ? nullptr : it->second;
}

CException::CException(const char *function, const char *file, quint32 line, const char *message,
    const CCallStack &callStack, CException *cause, qint32 primaryErrorCode,
    qint32 secondaryErrorCode, const char *subException)
    : m_TypeName("CException")
    , m_CallStack(callStack)
    , m_Function(orEmpty(function))
    , m_File(orEmpty(file))
    , m_Line(line)
    , m_Message(orEmpty(message))
    , m_PrimaryErrorCode(primaryErrorCode)
    , m_SecondaryErrorCode(secondaryErrorCode)
    , m_SubException(subException)
{
    registerDescription(typeid(CException), "This is a CxException");
    if (cause) {
        // The cause was caught by the caller, who hands it over to us.
        m_Cause = cause->clone();
        delete cause;
    }
}

CException::CException(const CException &other)
    : std::exception()
    , ISafeCloneable()
    , m_TypeName(orEmpty(other.m_TypeName))
    , m_CallStack(other.m_CallStack)
    , m_Cause(other.m_Cause ? other.m_Cause->clone() : nullptr)
    , m_Function(orEmpty(other.m_Function))
    , m_File(orEmpty(other.m_File))
    , m_Line(other.m_Line)
    // A copy of a message-less exception carries the placeholder as its message, and
    // so reports it under "Details:". Callers have come to rely on that.
    , m_Message(other.getExceptionMessage())
    , m_PrimaryErrorCode(other.m_PrimaryErrorCode)
    , m_SecondaryErrorCode(other.m_SecondaryErrorCode)
    , m_SubException(other.m_SubException)
{ }

CException::~CException()
{
    delete m_Cause;
}

CException *CException::clone() const
{
    return new (std::nothrow) CException(*this);
}

const char *CException::getExceptionMessage() const
{
    return m_Message.empty() ? cNoExceptionMessage : m_Message.c_str();
}

void CException::setCause(const CException &other)
{
    CException *copy = other.clone();
    if (!copy)
        return;
    delete m_Cause;
    m_Cause = copy;
    m_Report.clear();
}

const char *CException::what() const noexcept
{
    if (!m_Report.empty())
        return m_Report.c_str();

    try {
        std::ostringstream out;
        const char *description = descriptionOf(typeid(*this));
        if (!description || !*description) {
            out << m_TypeName << "\n\tthrown at\t"
                << "\t[" << m_File << ":" << m_Line << "]\t" << m_Function << std::endl;
        } else {
            out << m_TypeName << ":\t" << description << "\n\tthrown at "
                << "[" << m_File << ":" << m_Line << "]\t" << m_Function << std::endl;
        }
        if (m_SubException)
            out << "subException: " << m_SubException << std::endl;
        if (!m_Message.empty())
            out << "Details:\n" << m_Message << std::endl;
        if (m_PrimaryErrorCode != -1)
            out << "PrimaryErrorCode:\t" << m_PrimaryErrorCode << std::endl;
        if (m_SecondaryErrorCode != -1)
            out << "SecondaryErrorCode:\t" << m_SecondaryErrorCode << std::endl;
        out << m_CallStack << std::endl;
        if (m_Cause)
            out << "caused by\t" << m_Cause->what() << std::endl;
        m_Report = out.str();
    } catch (...) {
        return m_TypeName;
    }
    return m_Report.c_str();
}

std::ostream &operator<<(std::ostream &out, const CException &exception)
{
    return out << exception.what();
}
