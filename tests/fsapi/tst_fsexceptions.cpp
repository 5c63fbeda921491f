#include "fsapi/FSExceptions.h"

#include "BvTestSupport.h"

#include <functional>
#include <memory>
#include <typeinfo>

using namespace Exceptions;

using Thrower = std::function<void()>;
Q_DECLARE_METATYPE(Thrower)

class tst_FSExceptions : public QObject
{
    Q_OBJECT

private slots:
    void typeAndClone_data();
    void typeAndClone();
    void throwFunctions_data();
    void throwFunctions();
};

namespace {
template<typename T> CException *make()
{
    return new T("copyFile", "src/fsapi/x.cpp", 7, "File not found: /a", CCallStack(), nullptr, -1,
        -1, "Specified file doesn't exist");
}
} // namespace

void tst_FSExceptions::typeAndClone_data()
{
    QTest::addColumn<void *>("factory");
    QTest::addColumn<QByteArray>("typeName");
    QTest::addColumn<QByteArray>("description");
    QTest::newRow("FileSystemException")
        << reinterpret_cast<void *>(&make<FileSystemException>) << QByteArray("FileSystemException")
        << QByteArray("FileSystem Exception");
    QTest::newRow("DoesNotExist") << reinterpret_cast<void *>(&make<DoesNotExist>)
                                  << QByteArray("DoesNotExist")
                                  << QByteArray("Specified file/directory doesn't exist");
    QTest::newRow("FileExists") << reinterpret_cast<void *>(&make<FileExists>)
                                << QByteArray("FileExists")
                                << QByteArray("Specified file already exists");
    QTest::newRow("DirectoryExists")
        << reinterpret_cast<void *>(&make<DirectoryExists>) << QByteArray("DirectoryExists")
        << QByteArray("Specified directory already exists");
}

void tst_FSExceptions::typeAndClone()
{
    QFETCH(void *, factory);
    QFETCH(QByteArray, typeName);
    QFETCH(QByteArray, description);

    const std::unique_ptr<CException> original(reinterpret_cast<CException *(*)()>(factory)());
    QCOMPARE(QByteArray(original->getTypeName()), typeName);
    QCOMPARE(QByteArray(CException::descriptionOf(typeid(*original))), description);
    QVERIFY(QByteArray(original->what())
                .startsWith(typeName + ":\t" + description
                    + "\n\tthrown at [src/fsapi/x.cpp:7]\tcopyFile\n"
                      "subException: Specified file doesn't exist\n"
                      "Details:\nFile not found: /a\n"));

    const std::unique_ptr<CException> copy(original->clone());
    QVERIFY(copy);
    QVERIFY(typeid(*copy) == typeid(*original));
    QCOMPARE(QByteArray(copy->getTypeName()), typeName);
    QCOMPARE(copy->getMessage(), original->getMessage());
    QCOMPARE(QByteArray(copy->getSubException()), QByteArray(original->getSubException()));
    QCOMPARE(QByteArray(copy->getFunction()), QByteArray("copyFile"));
    QCOMPARE(copy->getLine(), 7u);
    QCOMPARE(copy->getPrimaryErrorCode(), -1);
    QCOMPARE(copy->getSecondaryErrorCode(), -1);
}

void tst_FSExceptions::throwFunctions_data()
{
    QTest::addColumn<Thrower>("thrower");
    QTest::addColumn<QByteArray>("typeName");
    QTest::addColumn<QByteArray>("subException");
    QTest::newRow("system FileSystemException") << Thrower([] {
        THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileSystemException(
            "f", "x.cpp", 1, "m", -1, -1, nullptr);
    }) << QByteArray("FileSystemException") << QByteArray();
    QTest::newRow("FileSystemException with sub") << Thrower([] {
        THROW_EXCEPTION_WITH_CAUSE_FROM_SUB_FileSystemException(
            "f", "x.cpp", 1, "m", -1, -1, nullptr, "Invalid parameter");
    }) << QByteArray("FileSystemException") << QByteArray("Invalid parameter");
    QTest::newRow("DoesNotExist") << Thrower([] {
        THROW_SYSTEM_EXCEPTION_WITH_CAUSE_DoesNotExist("f", "x.cpp", 1, "m", -1, -1, nullptr);
    }) << QByteArray("DoesNotExist")
                                  << QByteArray();
    QTest::newRow("FileExists") << Thrower(
        [] { THROW_SYSTEM_EXCEPTION_WITH_CAUSE_FileExists("f", "x.cpp", 1, "m", -1, -1, nullptr); })
                                << QByteArray("FileExists") << QByteArray();
}

void tst_FSExceptions::throwFunctions()
{
    QFETCH(Thrower, thrower);
    QFETCH(QByteArray, typeName);
    QFETCH(QByteArray, subException);
    try {
        thrower();
        QFAIL("nothing thrown");
    } catch (FileSystemException *e) {
        const std::unique_ptr<FileSystemException> owned(e);
        QCOMPARE(QByteArray(e->getTypeName()), typeName);
        QCOMPARE(QByteArray(e->getSubException()), subException);
        QCOMPARE(e->getMessage(), std::string("m"));
        QVERIFY(e->getCallStack().frameCount() > 0);
    }
}

QTEST_GUILESS_MAIN(tst_FSExceptions)
#include "tst_fsexceptions.moc"
