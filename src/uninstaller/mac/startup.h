#pragma once

#include <QString>

class QTranslator;

// Start-up helpers of the uninstaller. Everything is found relative to the directory of
// the executable (the bundle's Contents/MacOS), never through the current directory.

// Loads the toolkit catalogue and then the uninstaller's own catalogue into the one
// translator (the latter wins), installing it after each successful load. Missing
// catalogues are logged and tolerated; false only when there is no application object.
bool loadTranslations(QTranslator *translator);

// Overwrites appLanguage / qtLanguage with the system language when its catalogue exists
// in translationsDir (a directory with its trailing "/"); each decision on its own.
void chooseLanguage(const QString &translationsDir, QString &appLanguage, QString &qtLanguage);

// Applies the style sheet shipped beside the executable unless the application already
// carries one (given on the command line, say). False when the file cannot be opened.
bool loadStylesheet();
