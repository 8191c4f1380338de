// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Shared objects, whole and broken, and what the loader says of their libraries.
#include "elffile.h"
#include "loaderanswer.h"

#include "tests/tools/checktree.h"

#include <QtTest/QtTest>

#include <elf.h>

class tst_ElfFile : public QObject
{
    Q_OBJECT

private slots:
    void pluginsOwnWords();
    void programsInterpreter();
    void noSharedObject_data();
    void noSharedObject();
    void truncatedAnywhere();
    void changedAnywhere();
    void loaderFindsAll();
    void loaderNamesWhatIsMissing();
    void loaderNamesWhatIsTooOld();
    void loaderHasNoAnswer();
    void libraryIsMissingOnce();

private:
    CheckTree tree;
};

void tst_ElfFile::pluginsOwnWords()
{
    const ElfFile file(tree.path(CheckTree::plugin()));
    QCOMPARE(file.problem(), QString());
    QVERIFY(file.needed().contains(QStringLiteral("libjemalloc.so.2")));
    QVERIFY(file.needed().contains(QStringLiteral("libQt5Sql.so.5")));
    QCOMPARE(file.runPath(), QStringLiteral("$ORIGIN/../dorvy"));
    QCOMPARE(file.runPathFolders(),
             QStringList{tree.path(QStringLiteral("plugins/sqldrivers/../dorvy"))});
    QVERIFY(!file.hasStaticTls());
}

void tst_ElfFile::programsInterpreter()
{
    const QString loader = ElfFile(QCoreApplication::applicationFilePath()).interpreter();
    QVERIFY2(QFile::exists(loader), qPrintable(loader));
}

void tst_ElfFile::noSharedObject_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("problem");
    const QByteArray whole = tree.read(CheckTree::plugin()).left(4096);
    const auto changed = [&whole](int offset, char value) {
        QByteArray bytes = whole;
        bytes[offset] = value;
        return bytes;
    };
    const auto row = [](const char *tag, const QByteArray &bytes, const char *problem) {
        QTest::newRow(tag) << bytes << QString::fromLatin1(problem);
    };
    row("empty", "", "is empty");
    row("text", "Hello", "is no shared object");
    row("four bytes", ELFMAG, "is truncated");
    row("32 bits", changed(EI_CLASS, ELFCLASS32), "is a 32-bit file, and Qt here is a 64-bit one");
    row("other machine", changed(18, static_cast<char>(EM_AARCH64)),
        "is for another machine (AArch64), and Qt here is for x86-64");
    row("object file", changed(16, ET_REL), "is no shared object, but another ELF file");
    row("cut off", whole, "is truncated: it has 4096 bytes");
}

void tst_ElfFile::noSharedObject()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, problem);
    tree.write(QStringLiteral("broken.so"), bytes);
    QCOMPARE(ElfFile(tree.path(QStringLiteral("broken.so"))).problem(), problem);
}

void tst_ElfFile::truncatedAnywhere()
{
    tree.copy(QStringLiteral(DORVY_NEEDY), QStringLiteral("needy.so"));
    const QByteArray whole = tree.read(QStringLiteral("needy.so"));
    for (int size = 0; size < whole.size(); size += size < 256 ? 1 : 101) {
        tree.write(QStringLiteral("broken.so"), whole.left(size));
        const ElfFile file(tree.path(QStringLiteral("broken.so")));
        QVERIFY2(!file.problem().isEmpty(), qPrintable(QString::number(size)));
    }
}

// Whatever stands in the headers and the dynamic section, reading ends, inside the file.
void tst_ElfFile::changedAnywhere()
{
    tree.copy(QStringLiteral(DORVY_NEEDY), QStringLiteral("needy.so"));
    const QByteArray whole = tree.read(QStringLiteral("needy.so"));
    for (int offset = 0; offset < whole.size(); offset += offset < 512 ? 1 : 41) {
        for (const char value : {'\x7f', '\xff'}) {
            QByteArray bytes = whole;
            bytes.replace(offset, 4, QByteArray(4, value));
            tree.write(QStringLiteral("broken.so"), bytes);
            const ElfFile file(tree.path(QStringLiteral("broken.so")));
            QVERIFY(file.needed().size() < 100);
        }
    }
}

void tst_ElfFile::loaderFindsAll()
{
    const LoaderAnswer answer = askLoader(tree.path(CheckTree::plugin()));
    QCOMPARE(answer.failure, QString());
    QCOMPARE(answer.missing, QStringList());
    QCOMPARE(answer.tooOld.size(), 0);
    QCOMPARE(answer.undefined, QStringList());
    QVERIFY(answer.found.contains(QStringLiteral("libssl.so.3")));
}

void tst_ElfFile::loaderNamesWhatIsMissing()
{
    tree.copy(QStringLiteral(DORVY_NEEDY), QStringLiteral("needy.so"));
    tree.remove(QStringLiteral("libprovider.so"));
    QCOMPARE(askLoader(tree.path(QStringLiteral("needy.so"))).missing,
             QStringList{QStringLiteral("libprovider.so")});
}

void tst_ElfFile::loaderNamesWhatIsTooOld()
{
    tree.copy(QStringLiteral(DORVY_NEEDY), QStringLiteral("needy.so"));
    tree.copy(QStringLiteral(DORVY_OLD_PROVIDER), QStringLiteral("libprovider.so"));
    const LoaderAnswer answer = askLoader(tree.path(QStringLiteral("needy.so")));
    QCOMPARE(answer.tooOld.size(), 1);
    QCOMPARE(answer.tooOld.first().version, QStringLiteral("PROVIDER_2"));
    QCOMPARE(QFileInfo(answer.tooOld.first().library).fileName(), QStringLiteral("libprovider.so"));
    QCOMPARE(QFileInfo(answer.tooOld.first().requiredBy).fileName(), QStringLiteral("needy.so"));
}

void tst_ElfFile::loaderHasNoAnswer()
{
    tree.write(QStringLiteral("broken.so"), "Hello");
    QVERIFY(!askLoader(tree.path(QStringLiteral("broken.so"))).failure.isEmpty());
}

void tst_ElfFile::libraryIsMissingOnce()
{
    const QString line = QStringLiteral("\tlibx.so => not found\n");
    QCOMPARE(parseLoaderOutput(line + line).missing, QStringList{QStringLiteral("libx.so")});
}

QTEST_GUILESS_MAIN(tst_ElfFile)
#include "tst_elffile.moc"
