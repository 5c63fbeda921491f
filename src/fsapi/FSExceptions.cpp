#include "FSExceptions.h"

#include <new>

namespace Exceptions {

FileSystemException::FileSystemException(const char *function, const char *file, unsigned int line,
    const char *message, const CCallStack &stack, const CException *cause, int primaryCode,
    int secondaryCode, const char *subDescription)
    : CException(
        function, file, line, message, stack, nullptr, primaryCode, secondaryCode, subDescription)
{
    // Cloned, not consumed: the caller keeps its cause (setCause keeps none when the clone
    // cannot be made, as the base constructor does).
    if (cause)
        setCause(*cause);
    m_TypeName = "FileSystemException";
    registerDescription(typeid(FileSystemException), "FileSystem Exception");
}

FileSystemException *FileSystemException::clone() const
{
    return new (std::nothrow) FileSystemException(*this);
}

DoesNotExist::DoesNotExist(const char *function, const char *file, unsigned int line,
    const char *message, const CCallStack &stack, const CException *cause, int primaryCode,
    int secondaryCode, const char *subDescription)
    : FileSystemException(
        function, file, line, message, stack, cause, primaryCode, secondaryCode, subDescription)
{
    m_TypeName = "DoesNotExist";
    registerDescription(typeid(DoesNotExist), "Specified file/directory doesn't exist");
}

DoesNotExist *DoesNotExist::clone() const
{
    return new (std::nothrow) DoesNotExist(*this);
}

FileExists::FileExists(const char *function, const char *file, unsigned int line,
    const char *message, const CCallStack &stack, const CException *cause, int primaryCode,
    int secondaryCode, const char *subDescription)
    : FileSystemException(
        function, file, line, message, stack, cause, primaryCode, secondaryCode, subDescription)
{
    m_TypeName = "FileExists";
    registerDescription(typeid(FileExists), "Specified file already exists");
}

FileExists *FileExists::clone() const
{
    return new (std::nothrow) FileExists(*this);
}

DirectoryExists::DirectoryExists(const char *function, const char *file, unsigned int line,
    const char *message, const CCallStack &stack, const CException *cause, int primaryCode,
    int secondaryCode, const char *subDescription)
    : FileSystemException(
        function, file, line, message, stack, cause, primaryCode, secondaryCode, subDescription)
{
    m_TypeName = "DirectoryExists";
    registerDescription(typeid(DirectoryExists), "Specified directory already exists");
}

DirectoryExists *DirectoryExists::clone() const
{
    return new (std::nothrow) DirectoryExists(*this);
}

void THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileSystemException(const char *function, const char *file,
    unsigned int line, const char *message, int primaryCode, int secondaryCode,
    const CException *cause)
{
    const CCallStack stack;
    throw new FileSystemException(
        function, file, line, message, stack, cause, primaryCode, secondaryCode, nullptr);
}

void THROW_EXCEPTION_WITH_CAUSE_FROM_SUB_FileSystemException(const char *function, const char *file,
    unsigned int line, const char *message, int primaryCode, int secondaryCode,
    const CException *cause, const char *subDescription)
{
    const CCallStack stack;
    throw new FileSystemException(
        function, file, line, message, stack, cause, primaryCode, secondaryCode, subDescription);
}

void THROW_SYSTEM_EXCEPTION_WITH_CAUSE_DoesNotExist(const char *function, const char *file,
    unsigned int line, const char *message, int primaryCode, int secondaryCode,
    const CException *cause)
{
    const CCallStack stack;
    throw new DoesNotExist(
        function, file, line, message, stack, cause, primaryCode, secondaryCode, nullptr);
}

void THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileExists(const char *function, const char *file,
    unsigned int line, const char *message, int primaryCode, int secondaryCode,
    const CException *cause)
{
    const CCallStack stack;
    throw new FileExists(
        function, file, line, message, stack, cause, primaryCode, secondaryCode, nullptr);
}

} // namespace Exceptions
