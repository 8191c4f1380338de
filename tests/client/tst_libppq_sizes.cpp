// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Parameters of PPQexecPrepared that libpq's send buffer cannot hold.
#include "client/libppq.h"

#include "tests/support/libpqowners.h"
#include "tests/support/pgcluster.h"
#include "tests/support/wireproxy.h"

#include <QtCore/QTemporaryFile>
#include <QtTest/QtTest>

#include <climits>
#include <memory>
#include <vector>

#include <sys/mman.h>

namespace {

constexpr size_t MiB = 1024 * 1024;

// A text that is longer than its memory: one piece of it, mapped again and again.
class RepeatedText
{
public:
    explicit RepeatedText(size_t mebibytes)
        : size((mebibytes + 1) * MiB)
        , memory(mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
    {
        if (memory == MAP_FAILED || !piece.open() ||
            piece.write(QByteArray(PieceBytes, 'x')) != PieceBytes || !piece.flush()) {
            qFatal("no text");
        }
        // The zeros of the last piece, which stays as it is, are the text's end.
        for (size_t at = 0; at < mebibytes * MiB; at += PieceBytes) {
            if (mmap(static_cast<char *>(memory) + at, PieceBytes, PROT_READ,
                     MAP_PRIVATE | MAP_FIXED, piece.handle(), 0) == MAP_FAILED) {
                qFatal("no piece of text");
            }
        }
    }
    ~RepeatedText() { munmap(memory, size); }

    const char *text() const { return static_cast<const char *>(memory); }

private:
    Q_DISABLE_COPY(RepeatedText)

    static constexpr int PieceBytes = MiB;

    QTemporaryFile piece;
    size_t size;
    void *memory;
};

} // namespace

class tst_LibPpqSizes : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void binaryBeyondTheBuffer_data();
    void binaryBeyondTheBuffer();
    void textBeyondTheBuffer_data();
    void textBeyondTheBuffer();
    void unsentCloseSurvives();

private:
    ResultPtr start(const std::vector<const char *> &values, const int *lengths,
                    const int *formats) const
    {
        return ResultPtr(PPQexecPrepared(conn.get(), 1, "st", "po", static_cast<int>(values.size()),
                                         values.data(), lengths, formats, 0));
    }
    void verifyRefused(const ResultPtr &result);

    PgCluster cluster;
    std::unique_ptr<WireProxy> proxy;
    RawConnectionPtr conn;
};

void tst_LibPpqSizes::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    proxy.reset(new WireProxy(cluster.socketDir(), cluster.port()));
}

void tst_LibPpqSizes::cleanupTestCase()
{
    conn.reset();
    proxy.reset();
}

void tst_LibPpqSizes::init()
{
    conn.reset(PQconnectdb(proxy->conninfo().constData()));
    const ResultPtr prepared(
        PQprepare(conn.get(), "st", "SELECT length($1::text), length($2::text), length($3::text)",
                  0, nullptr));
    QVERIFY2(PQresultStatus(prepared.get()) == PGRES_COMMAND_OK, PQerrorMessage(conn.get()));
    proxy->clear();
}

// Nothing has been sent, and the connection goes on.
void tst_LibPpqSizes::verifyRefused(const ResultPtr &result)
{
    QVERIFY(!result);
    QCOMPARE(QByteArray(PQerrorMessage(conn.get())),
             QByteArray("cannot allocate memory for output buffer\n"));
    QCOMPARE(proxy->conversation(), QStringList());
    QCOMPARE(PQstatus(conn.get()), CONNECTION_OK);
    QCOMPARE(PQtransactionStatus(conn.get()), PQTRANS_IDLE);
    const ResultPtr next = start({"a", "bb", "ccc"}, nullptr, nullptr);
    QVERIFY2(PQresultStatus(next.get()) == PGRES_TUPLES_OK, PQerrorMessage(conn.get()));
    QCOMPARE(QByteArray(PQgetvalue(next.get(), 0, 2)), QByteArray("3"));
}

void tst_LibPpqSizes::binaryBeyondTheBuffer_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("second");
    QTest::addColumn<int>("third");
    QTest::newRow("one of an int's size") << INT_MAX << 1 << 1;
    QTest::newRow("sum passes an int") << 838860800 << 838860800 << 838860800;
    QTest::newRow("sum in 32 bits is small") << INT_MAX << INT_MAX << 16;
}

// The bytes are not looked at, so there need not be so many.
void tst_LibPpqSizes::binaryBeyondTheBuffer()
{
    QFETCH(int, first);
    QFETCH(int, second);
    QFETCH(int, third);
    const int lengths[] = {first, second, third};
    const int formats[] = {1, 1, 1};
    verifyRefused(start({"a", "b", "c"}, lengths, formats));
}

void tst_LibPpqSizes::textBeyondTheBuffer_data()
{
    QTest::addColumn<bool>("thrice");
    QTest::newRow("one") << false;
    QTest::newRow("three") << true;
}

void tst_LibPpqSizes::textBeyondTheBuffer()
{
    QFETCH(bool, thrice);
    const RepeatedText longer(thrice ? 800 : 2048);
    const char *others = thrice ? longer.text() : "a";
    verifyRefused(start({longer.text(), others, others}, nullptr, nullptr));
}

// The refusal comes before the Close in the send buffer is touched.
void tst_LibPpqSizes::unsentCloseSurvives()
{
    QCOMPARE(PPQclose(conn.get(), "po", nullptr), 1);
    const int lengths[] = {INT_MAX, 1, 1};
    const int formats[] = {1, 1, 1};
    QVERIFY(!start({"a", "b", "c"}, lengths, formats));
    const ResultPtr next = start({"a", "bb", "ccc"}, nullptr, nullptr);
    QVERIFY2(PQresultStatus(next.get()) == PGRES_TUPLES_OK, PQerrorMessage(conn.get()));
    QCOMPARE(QByteArray(PQgetvalue(next.get(), 0, 1)), QByteArray("2"));
}

QTEST_GUILESS_MAIN(tst_LibPpqSizes)
#include "tst_libppq_sizes.moc"
