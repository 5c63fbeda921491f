#pragma once

// Shared by the sources of CMacFSOperations: how its operations throw. Each expands
// __func__ and BV_SOURCE_FILE where it is used, so an exception names the operation and
// the source file that raised it.

#include "fsapi/FSExceptions.h"
#include "fsapi/mac/CMacFSOperations.h"

// An exception with a sub-description, built in place.
#define FS_THROW_SUB(Type, message, sub)                                                           \
    throw new Exceptions::Type(__func__, BV_SOURCE_FILE, __LINE__,                                 \
        CMacFSOperations::encodePath(message).constData(), CCallStack(), nullptr, -1, -1, sub)

#define FS_THROW_SYSTEM(Type, message)                                                             \
    Exceptions::THROW_SYSTEM_EXCEPTION_WITH_CAUSE_##Type(__func__, BV_SOURCE_FILE, __LINE__,       \
        CMacFSOperations::encodePath(message).constData(), -1, -1, nullptr)

#define FS_THROW_INVALID(message)                                                                  \
    Exceptions::THROW_EXCEPTION_WITH_CAUSE_FROM_SUB_FileSystemException(__func__, BV_SOURCE_FILE,  \
        __LINE__, CMacFSOperations::encodePath(message).constData(), -1, -1, nullptr,              \
        "Invalid parameter")

// The argument checks of the four renames: both paths given, both in one folder. A macro,
// so that the log lines and the exception name the rename that was called.
#define FS_CHECK_RENAME_ARGUMENTS(from, to)                                                        \
    do {                                                                                           \
        if ((from).isEmpty()) {                                                                    \
            BV_CRITICAL() << "Empty src path ...";                                                 \
            return false;                                                                          \
        }                                                                                          \
        if ((to).isEmpty()) {                                                                      \
            BV_CRITICAL() << "Empty dest path ...";                                                \
            return false;                                                                          \
        }                                                                                          \
        QString fromFolder;                                                                        \
        QString toFolder;                                                                          \
        if (!splitFolder(from, fromFolder) || !splitFolder(to, toFolder)) {                        \
            BV_CRITICAL() << "could not split path";                                               \
            return false;                                                                          \
        }                                                                                          \
        if (fromFolder != toFolder)                                                                \
            FS_THROW_INVALID(QStringLiteral("Paths not equal"));                                   \
    } while (false)
