#pragma once

#include "CCallStack.h"
#include "ISafeCloneable.h"
#include "TypeInfo.h"

#include <exception>
#include <iosfwd>
#include <map>
#include <string>

// Base of every exception of the library. Created on the heap and thrown as a
// pointer; whoever catches it owns it and deletes it, or passes it on as the
// cause of a new exception.
class CException : public ISafeCloneable, public virtual std::exception
{
public:
    static const char *const cNoExceptionMessage;
    static std::map<TypeInfo, const char *> s_ExceptionDescriptions;

    // Takes ownership of cause: it is cloned and the passed object deleted.
    CException(const char *function, const char *file, quint32 line, const char *message,
        const CCallStack &callStack, CException *cause, qint32 primaryErrorCode,
        qint32 secondaryErrorCode, const char *subException);
    CException(const CException &other);
    CException &operator=(const CException &) = delete;

    CException *clone() const override;
    ~CException() override;
    const char *what() const noexcept override;

    // The message, or cNoExceptionMessage when there is none.
    const char *getExceptionMessage() const;
    void setCause(const CException &other);

    const char *getTypeName() const { return m_TypeName; }
    const CCallStack &getCallStack() const { return m_CallStack; }
    const CException *getCause() const { return m_Cause; }
    const char *getFunction() const { return m_Function; }
    const char *getFile() const { return m_File; }
    quint32 getLine() const { return m_Line; }
    const std::string &getMessage() const { return m_Message; }
    qint32 getPrimaryErrorCode() const { return m_PrimaryErrorCode; }
    qint32 getSecondaryErrorCode() const { return m_SecondaryErrorCode; }
    const char *getSubException() const { return m_SubException; }

    static const char *descriptionOf(const std::type_info &type);

protected:
    // Subclass constructors register their own class; the registry never throws out.
    static void registerDescription(const std::type_info &type, const char *description);

    const char *m_TypeName;

private:
    CCallStack m_CallStack;
    CException *m_Cause = nullptr;
    const char *m_Function;
    const char *m_File;
    quint32 m_Line;
    std::string m_Message;
    qint32 m_PrimaryErrorCode;
    qint32 m_SecondaryErrorCode;
    const char *m_SubException;
    mutable std::string m_Report;
};

std::ostream &operator<<(std::ostream &out, const CException &exception);
