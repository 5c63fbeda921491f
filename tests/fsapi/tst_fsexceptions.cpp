#include "fsapi/FSExceptions.h"

#include <QtTest>

#include <memory>
#include <typeinfo>

using namespace Exceptions;

using Factory = CException *(*)();
Q_DECLARE_METATYPE(Factory)

namespace {
template<typename T> CException *make()
{
    return new T("copyFile", "x.cpp", 7, "m", CCallStack(), nullptr, -1, -1, nullptr);
}
} // namespace

class tst_FSExceptions : public QObject
{
    Q_OBJECT

private slots:
    void names_data()
    {
        QTest::addColumn<Factory>("factory");
        QTest::addColumn<QByteArray>("text"); // type name and description, as what() shows them
        // clang-format off
        QTest::newRow("FileSystemException") << Factory(&make<FileSystemException>) << QByteArray("FileSystemException:\tFileSystem Exception\n");
        QTest::newRow("DoesNotExist")        << Factory(&make<DoesNotExist>) << QByteArray("DoesNotExist:\tSpecified file/directory doesn't exist\n");
        QTest::newRow("FileExists")          << Factory(&make<FileExists>) << QByteArray("FileExists:\tSpecified file already exists\n");
        QTest::newRow("DirectoryExists")     << Factory(&make<DirectoryExists>) << QByteArray("DirectoryExists:\tSpecified directory already exists\n");
        // clang-format on
    }

    // The copy keeps its type: a cause is kept as a clone.
    void names()
    {
        QFETCH(Factory, factory);
        QFETCH(QByteArray, text);
        const std::unique_ptr<CException> original(factory());
        const std::unique_ptr<CException> copy(original->clone());
        QVERIFY(typeid(*copy) == typeid(*original));
        QVERIFY2(QByteArray(copy->what()).startsWith(text), copy->what());
    }
};

QTEST_GUILESS_MAIN(tst_FSExceptions)
#include "tst_fsexceptions.moc"
