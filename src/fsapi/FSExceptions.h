#pragma once

#include "threading/exceptions/CException.h"

// Hard failures of the file-system library. Thrown as pointers to heap objects; the
// catcher owns what it catches. The library itself always passes the codes -1, -1 and
// no cause, and writes an errno into the message text where one matters.
//
// A cause is cloned and stays its caller's: unlike CException's own constructor, these
// take it as const, so an exception reached through getCause() can be passed on.
namespace Exceptions {

class FileSystemException : public CException
{
public:
    FileSystemException(const char *function, const char *file, unsigned int line,
        const char *message, const CCallStack &stack, const CException *cause, int primaryCode,
        int secondaryCode, const char *subDescription);
    FileSystemException *clone() const override;
};

class DoesNotExist : public FileSystemException
{
public:
    DoesNotExist(const char *function, const char *file, unsigned int line, const char *message,
        const CCallStack &stack, const CException *cause, int primaryCode, int secondaryCode,
        const char *subDescription);
    DoesNotExist *clone() const override;
};

class FileExists : public FileSystemException
{
public:
    FileExists(const char *function, const char *file, unsigned int line, const char *message,
        const CCallStack &stack, const CException *cause, int primaryCode, int secondaryCode,
        const char *subDescription);
    FileExists *clone() const override;
};

class DirectoryExists : public FileSystemException
{
public:
    DirectoryExists(const char *function, const char *file, unsigned int line, const char *message,
        const CCallStack &stack, const CException *cause, int primaryCode, int secondaryCode,
        const char *subDescription);
    DirectoryExists *clone() const override;
};

// Each captures the call stack here, creates the exception and throws the pointer.
[[noreturn]] void THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileSystemException(const char *function,
    const char *file, unsigned int line, const char *message, int primaryCode, int secondaryCode,
    const CException *cause);
[[noreturn]] void THROW_EXCEPTION_WITH_CAUSE_FROM_SUB_FileSystemException(const char *function,
    const char *file, unsigned int line, const char *message, int primaryCode, int secondaryCode,
    const CException *cause, const char *subDescription);
[[noreturn]] void THROW_SYSTEM_EXCEPTION_WITH_CAUSE_DoesNotExist(const char *function,
    const char *file, unsigned int line, const char *message, int primaryCode, int secondaryCode,
    const CException *cause);
[[noreturn]] void THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileExists(const char *function,
    const char *file, unsigned int line, const char *message, int primaryCode, int secondaryCode,
    const CException *cause);

} // namespace Exceptions
