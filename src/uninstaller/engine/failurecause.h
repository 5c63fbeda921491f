#pragma once

#include <QString>

// Why a step could not be done: the entry the system refused and the reason it gave
// (an errno value), or a reason of the uninstaller's own. The report and the log show
// it in English, as the system's own texts read; the window in the user's language.
struct FailureCause
{
    QString entry;
    int error = 0; // errno; 0 when `ownReason` says why
    const char *ownReason = nullptr; // one of the reasons below, untranslated

    static const char C_NOT_COPYABLE[]; // a FIFO, socket or device in a key folder
    static const char C_COPY_DIFFERS[];

    bool isEmpty() const { return entry.isEmpty() && error == 0 && !ownReason; }
    QString reason() const;
    QString translatedReason() const;
    // "<entry>: <reason>", in English or in the user's language.
    QString text() const;
    QString translatedText() const;

    static FailureCause system(const QString &entry, int error);
    // The errno and entry a file-operation exception names in its text, if any;
    // `path` stands in for an exception that names no entry.
    static FailureCause fromExceptionText(const QString &text, const QString &path);
};
