// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The rows of a page: whatever stands in them, in whatever pieces they come, and what libpq's own
// calls make of them.
#include "tests/client/peerpages.h"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>

using namespace ServerMessage;

using Row = OrdinaryAnswers::Row;

namespace {

constexpr int BufferBytes = 16384; // libpq's first input buffer
constexpr int MiB = 1024 * 1024;

QByteArray described(int count)
{
    return bindComplete() + rowDescription(columns(count));
}

QByteArray messagesOf(const QList<Row> &rows)
{
    QByteArray bytes;
    for (const Row &row : rows) {
        bytes += dataRow(row);
    }
    return bytes;
}

QByteArray suspended()
{
    return portalSuspended() + readyForQuery('I');
}

// Every row that \a kinds make in so many columns.
QList<Row> everyRow(const QList<QByteArray> &kinds, int columnCount)
{
    QList<Row> rows{Row()};
    for (int column = 0; column < columnCount; ++column) {
        QList<Row> longer;
        for (const Row &row : qAsConst(rows)) {
            for (const QByteArray &kind : kinds) {
                longer += row + Row{kind};
            }
        }
        rows = longer;
    }
    return rows;
}

QList<Row> numbers(int count)
{
    QList<Row> rows;
    for (int i = 1; i <= count; ++i) {
        const QByteArray number = QByteArray::number(i);
        rows += Row{number, i % 3 == 0 ? QByteArray() : "value " + number};
    }
    return rows;
}

QByteArray textOfValue(const QByteArray &value)
{
    return value.isNull() ? QByteArray("NULL") : QByteArray::number(value.size()) + ':' + value;
}

// The same of a result, in which a zero stands behind every value.
QByteArray textOfValue(const PGresult *result, int row, int column)
{
    const char *value = PQgetvalue(result, row, column);
    const int length = PQgetlength(result, row, column);
    const bool null = PQgetisnull(result, row, column);
    return (null ? "NULL" + QByteArray(value, length)
                 : QByteArray::number(length) + ':' + QByteArray(value, length)) +
           (value[length] == '\0' ? "" : " without its end");
}

QList<QByteArray> textsOf(const QList<Row> &rows)
{
    QList<QByteArray> texts;
    for (const Row &row : rows) {
        QByteArray text;
        for (const QByteArray &value : row) {
            text += textOfValue(value) + "; ";
        }
        texts += text;
    }
    return texts;
}

QList<QByteArray> textsOf(const ResultPtr &page)
{
    QList<QByteArray> texts;
    for (int row = 0; row < PQntuples(page.get()); ++row) {
        QByteArray text;
        for (int column = 0; column < PQnfields(page.get()); ++column) {
            text += textOfValue(page.get(), row, column) + "; ";
        }
        texts += text;
    }
    return texts;
}

bool isSuspended(const ResultPtr &page)
{
    return PQresultStatus(page.get()) == PGRES_TUPLES_OK && *PQcmdStatus(page.get()) == '\0';
}

QByteArray read(FILE *file)
{
    QByteArray bytes(static_cast<int>(std::ftell(file)), '\0');
    std::rewind(file);
    bytes.resize(
        static_cast<int>(std::fread(bytes.data(), 1, static_cast<size_t>(bytes.size()), file)));
    return bytes;
}

/*! What libpq's trace tells of the server's messages during \a operation. */
QList<QByteArray> traced(PGconn *conn, const std::function<void()> &operation)
{
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::tmpfile(), std::fclose);
    PQtrace(conn, file.get());
    PQsetTraceFlags(conn, PQTRACE_SUPPRESS_TIMESTAMPS);
    operation();
    PQuntrace(conn);
    QList<QByteArray> lines;
    for (const QByteArray &line : read(file.get()).split('\n')) {
        if (line.startsWith('B')) {
            lines += line;
        }
    }
    return lines;
}

int rowLinesIn(const QList<QByteArray> &lines)
{
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [](const QByteArray &line) {
        return line.contains("\tDataRow\t");
    }));
}

void setValue(const ResultPtr &page, int row, int column, const QByteArray &value)
{
    QByteArray bytes = value;
    QCOMPARE(PQsetvalue(page.get(), row, column, value.isNull() ? nullptr : bytes.data(),
                        value.isNull() ? -1 : value.size()),
             1);
}

int notificationsTakenFrom(PGconn *conn)
{
    int count = 0;
    while (PGnotify *notification = PQnotifies(conn)) {
        ++count;
        PQfreemem(notification);
    }
    return count;
}

} // namespace

class tst_LibPpqRows : public QObject, private PeerPages
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void valuesInEveryOrder_data();
    void valuesInEveryOrder();
    void formats_data();
    void formats();
    void negativeLengthsAreNull();
    void memoryOfRowsWithNegativeLengths();
    void longRowAmongShortOnes();
    void noColumns();
    void mostColumns();
    void moreRowsThanAskedFor_data();
    void moreRowsThanAskedFor();

    void piecesOfEverySize();
    void cutInTwoAtEveryByte();
    void endsAtTheEdgeOfTheBuffer();
    void messagesAmongTheRows();

    void memorySizeCountsTheRows_data();
    void memorySizeCountsTheRows();
    void copyOutlivesThePage();
    void setValuesStandAlone_data();
    void setValuesStandAlone();
    void setRowsFollowTheOthers();
    void allocationsLeaveTheRowsAlone();
    void traceTellsEveryRow_data();
    void traceTellsEveryRow();
    void singleRowModeIsDiscarded_data();
    void singleRowModeIsDiscarded();
    void singleRowModeBehindACloseIsDiscarded_data();
    void singleRowModeBehindACloseIsDiscarded();

private:
    using PeerPages::play;
    void play(const QByteArray &types, const Answer &answer);
    void play(const QByteArray &types, const QByteArray &reply);
    ResultPtr pageFor(const QByteArray &types) const { return types == Run ? run() : fetch(run()); }
    QList<QByteArray> walk(int rows) const;
    void leaveSingleRows(const QByteArray &sql, int fetched);
};

// New memory is full of something, so that no zero stands behind a value by chance.
void tst_LibPpqRows::initTestCase()
{
    mallopt(M_PERTURB, 'x');
}

void tst_LibPpqRows::cleanup()
{
    QVERIFY2(endInTime(), "the client waited until the peer hung up");
}

// Five rows, until something else answers.
void tst_LibPpqRows::play(const QByteArray &types, const Answer &answer)
{
    play(types, answer, OrdinaryAnswers(columns(2), numbers(5)));
}

void tst_LibPpqRows::play(const QByteArray &types, const QByteArray &reply)
{
    play(types, [reply](PeerLink &link) { link.send(reply); });
}

// The rows of all pages.
QList<QByteArray> tst_LibPpqRows::walk(int rows) const
{
    ResultPtr page = run(rows);
    QList<QByteArray> texts = textsOf(page);
    while (isSuspended(page)) {
        page = fetch(page, rows);
        texts += textsOf(page);
    }
    return texts;
}

void tst_LibPpqRows::valuesInEveryOrder_data()
{
    QTest::addColumn<int>("columnCount");
    QTest::addColumn<qint16>("format");
    QTest::addColumn<int>("pageRows");
    for (const int count : {1, 2, 3}) {
        for (const qint16 format : {qint16(0), qint16(1)}) {
            for (const int pageRows : {1, 2, 7, 128, 1000}) {
                QTest::newRow(qPrintable(QStringLiteral("%1 columns, format %2, pages of %3")
                                             .arg(count)
                                             .arg(format)
                                             .arg(pageRows)))
                    << count << format << pageRows;
            }
        }
    }
}

void tst_LibPpqRows::valuesInEveryOrder()
{
    QFETCH(int, columnCount);
    QFETCH(qint16, format);
    QFETCH(int, pageRows);
    const QList<Row> rows = everyRow({QByteArray(), QByteArray(""), QByteArray("a"),
                                      QByteArray("\0\1\0", 3), QByteArray(300, 'D')},
                                     columnCount);
    play(OrdinaryAnswers(columns(columnCount, format), rows));
    QCOMPARE(walk(pageRows), textsOf(rows));
}

void tst_LibPpqRows::formats_data()
{
    QTest::addColumn<qint16>("first");
    QTest::addColumn<qint16>("second");
    QTest::newRow("text") << qint16(0) << qint16(0);
    QTest::newRow("binary") << qint16(1) << qint16(1);
    QTest::newRow("text beside binary") << qint16(0) << qint16(1);
    QTest::newRow("binary beside text") << qint16(1) << qint16(0);
}

void tst_LibPpqRows::formats()
{
    QFETCH(qint16, first);
    QFETCH(qint16, second);
    QList<Column> mixed = columns(2);
    mixed[0].format = first;
    mixed[1].format = second;
    play(OrdinaryAnswers(mixed, numbers(5)));
    const ResultPtr one = run();
    const ResultPtr two = fetch(one);
    for (const ResultPtr *page : {&one, &two}) {
        QCOMPARE(PQfformat(page->get(), 0), int(first));
        QCOMPARE(PQfformat(page->get(), 1), int(second));
        QCOMPARE(PQbinaryTuples(page->get()), first && second ? 1 : 0);
    }
    QCOMPARE(textsOf(one) + textsOf(two), textsOf(numbers(4)));
}

// Minus one is the protocol's; libpq takes all of them for it.
void tst_LibPpqRows::negativeLengthsAreNull()
{
    const QByteArray count("\0\3", 2);
    const QByteArray value("\0\0\0\1v", 5);
    const QByteArray least("\x80\0\0\0", 4);
    const QByteArray minusTwo("\xff\xff\xff\xfe", 4);
    const QByteArray rows = message('D', count + least + value + minusTwo) +
                            message('D', count + value + minusTwo + least);
    const QList<QByteArray> expected =
        textsOf({{QByteArray(), "v", QByteArray()}, {"v", QByteArray(), QByteArray()}});
    play(Run, described(3) + rows + suspended());
    QCOMPARE(textsOf(run()), expected);
}

// Though they are received at once and looked at one by one.
void tst_LibPpqRows::memoryOfRowsWithNegativeLengths()
{
    const QByteArray row = message('D', QByteArray("\0\1\xff\xff\xff\xfe", 6));
    play(Run,
         described(1) + row.repeated(1000) + commandComplete("SELECT 1000") + readyForQuery('I'));
    const ResultPtr libpqs(PQexecPrepared(conn.get(), "st", 0, nullptr, nullptr, nullptr, 1));
    connectAnew();
    const ResultPtr page = run();
    QCOMPARE(textsOf(page), textsOf(libpqs));
    const size_t size = PQresultMemorySize(page.get());
    QVERIFY2(size <= 2 * PQresultMemorySize(libpqs.get()), QByteArray::number(qulonglong(size)));
}

void tst_LibPpqRows::longRowAmongShortOnes()
{
    const QList<Row> rows{{"1", "a"},
                          {QByteArray(MiB, 'l'), "b"},
                          {"2", QByteArray()},
                          {QByteArray(), QByteArray(MiB, 'r')},
                          {"", "c"}};
    play(OrdinaryAnswers(columns(2), rows));
    for (const int pageRows : {1, 2, 128}) {
        QCOMPARE(walk(pageRows), textsOf(rows));
    }
}

void tst_LibPpqRows::noColumns()
{
    play(OrdinaryAnswers({}, QVector<Row>(300).toList()));
    const ResultPtr first = run(200);
    QVERIFY(isSuspended(first));
    QCOMPARE(PQntuples(first.get()), 200);
    QCOMPARE(PQnfields(first.get()), 0);
    const ResultPtr second = fetch(first, 200);
    QCOMPARE(PQntuples(second.get()), 100);
    QCOMPARE(PQnfields(second.get()), 0);
}

void tst_LibPpqRows::mostColumns()
{
    constexpr int Most = 1600; // that a table of the server can have
    Row numbered;
    Row sparse;
    for (int i = 0; i < Most; ++i) {
        numbered += QByteArray::number(i);
        sparse += i % 2 == 0 ? QByteArray() : QByteArray("x");
    }
    const Row nulls(QVector<QByteArray>(Most).toList());
    const QList<Row> rows{numbered, nulls, sparse, numbered};
    play(OrdinaryAnswers(columns(Most), rows));
    for (const int pageRows : {1, 3, 128}) {
        QCOMPARE(walk(pageRows), textsOf(rows));
    }
    QCOMPARE(QByteArray(PQfname(run().get(), Most - 1)), QByteArray("c1599"));
}

void tst_LibPpqRows::moreRowsThanAskedFor_data()
{
    QTest::addColumn<int>("count");
    for (const int count : {127, 128, 129, 255, 256, 257, 1000, 100000}) {
        QTest::newRow(QByteArray::number(count).constData()) << count;
    }
}

void tst_LibPpqRows::moreRowsThanAskedFor()
{
    QFETCH(int, count);
    const QList<Row> rows = numbers(count);
    const QList<QByteArray> expected = textsOf(rows);
    play(Run, described(2) + messagesOf(rows) + suspended());
    const ResultPtr first = run();
    QVERIFY(isSuspended(first));
    QCOMPARE(textsOf(first), expected);
    play(Fetch, messagesOf(rows) + suspended());
    const ResultPtr later = fetch(run());
    QVERIFY(isSuspended(later));
    QCOMPARE(textsOf(later), expected);
}

// Whoever connects for the nth time gets pieces of n bytes.
void tst_LibPpqRows::piecesOfEverySize()
{
    const QList<Row> rows{{"1", QByteArray()}, {"", "two"}, {QByteArray(), ""}, {"D", "4"}};
    const QByteArray page = messagesOf(rows) + suspended();
    const QByteArray reply = described(2) + page;
    for (const QByteArray &types : {QByteArray(Run), QByteArray(Fetch)}) {
        const QByteArray &bytes = types == Run ? reply : page;
        play(types, [bytes](PeerLink &link) { link.sendInPieces(bytes, link.number()); });
        for (int size = 1; size <= bytes.size(); ++size) {
            QCOMPARE(textsOf(pageFor(types)), textsOf(rows));
            connectAnew();
        }
    }
}

// The second part follows when the client has had time to look at the first.
void tst_LibPpqRows::cutInTwoAtEveryByte()
{
    const QList<Row> rows{{"1", QByteArray()}, {"", "two"}, {QByteArray(), ""}, {"D", "4"}};
    const QByteArray reply = described(2) + messagesOf(rows) + suspended();
    play(Run, [reply](PeerLink &link) {
        link.send(reply.left(link.number()));
        QThread::msleep(2);
        link.send(reply.mid(link.number()));
    });
    for (int at = 1; at < reply.size(); ++at) {
        QCOMPARE(textsOf(run()), textsOf(rows));
        connectAnew();
    }
}

// A row's last byte is the last of the buffer, or near it on either side.
void tst_LibPpqRows::endsAtTheEdgeOfTheBuffer()
{
    constexpr int Around = 60; // bytes, more than the short rows take
    const QByteArray start = described(1);
    const int frame = dataRow({""}).size();
    const auto rows = [start, frame](int number) {
        const QByteArray filler(BufferBytes - start.size() - frame - Around + number, 'f');
        return QList<Row>{{filler}, {"ab"}, {QByteArray()}, {""}, {"cd"}};
    };
    play(Run, [start, rows](PeerLink &link) {
        link.send(start + messagesOf(rows(link.number())) + suspended());
    });
    for (int number = 1; number <= 2 * Around; ++number) {
        QCOMPARE(textsOf(run()), textsOf(rows(number)));
        connectAnew();
    }
}

void tst_LibPpqRows::messagesAmongTheRows()
{
    constexpr int Times = 100;
    QByteArray page;
    for (int i = 1; i <= Times; ++i) {
        page += dataRow({"1", ""}) + noticeResponse("n") + dataRow({QByteArray(), "2"}) +
                dataRow({"", "3"}) + parameterStatus("application_name", QByteArray::number(i)) +
                dataRow({"4", QByteArray()}) + notificationResponse(1, "c", "p") +
                noticeResponse("n");
    }
    QList<Row> rows;
    for (int i = 0; i < Times; ++i) {
        rows += QList<Row>{{"1", ""}, {QByteArray(), "2"}, {"", "3"}, {"4", QByteArray()}};
    }
    for (const QByteArray &types : {QByteArray(Run), QByteArray(Fetch)}) {
        play(types, (types == Run ? described(2) : QByteArray()) + page + suspended());
        QCOMPARE(textsOf(pageFor(types)), textsOf(rows));
        QCOMPARE(notices, 2 * Times);
        QCOMPARE(notificationsTakenFrom(conn.get()), Times);
        QCOMPARE(QByteArray(PQparameterStatus(conn.get(), "application_name")),
                 QByteArray::number(Times));
    }
}

// At least the values, with a length and a pointer each; at most what libpq's own result has.
void tst_LibPpqRows::memorySizeCountsTheRows_data()
{
    QTest::addColumn<int>("count");
    for (const int count : {0, 1, 100, 400}) {
        QTest::newRow(QByteArray::number(count).constData()) << count;
    }
}

void tst_LibPpqRows::memorySizeCountsTheRows()
{
    QFETCH(int, count);
    constexpr size_t RowBytes = 1005 + 3 * (sizeof(int) + sizeof(char *));
    const Row row{QByteArray(1000, 'x'), "short", QByteArray()};
    play(OrdinaryAnswers(columns(3), QVector<Row>(count, row).toList()));
    const ResultPtr page = run(1000);
    const ResultPtr libpqs(PQexecPrepared(conn.get(), "st", 0, nullptr, nullptr, nullptr, 1));
    QCOMPARE(textsOf(page), textsOf(libpqs));
    const size_t size = PQresultMemorySize(page.get());
    QVERIFY2(size >= static_cast<size_t>(count) * RowBytes, QByteArray::number(qulonglong(size)));
    QVERIFY2(size <= PQresultMemorySize(libpqs.get()), QByteArray::number(qulonglong(size)));
}

void tst_LibPpqRows::copyOutlivesThePage()
{
    play(OrdinaryAnswers(columns(2), numbers(300)));
    ResultPtr page = run(200);
    const ResultPtr copy(PQcopyResult(page.get(), PG_COPYRES_ATTRS | PG_COPYRES_TUPLES));
    const ResultPtr empty(PQcopyResult(page.get(), PG_COPYRES_ATTRS));
    page.reset();
    QCOMPARE(textsOf(copy), textsOf(numbers(200)));
    QCOMPARE(PQnfields(copy.get()), 2);
    QCOMPARE(PQntuples(empty.get()), 0);
    QCOMPARE(QByteArray(PQfname(empty.get(), 1)), QByteArray("c1"));
    // Either lends its columns, as the page would.
    QCOMPARE(textsOf(fetch(copy, 200)), textsOf(numbers(300).mid(200)));
}

void tst_LibPpqRows::setValuesStandAlone_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("null") << QByteArray();
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("short") << QByteArray("s");
    QTest::newRow("as long as it was") << QByteArray("another");
    QTest::newRow("long") << QByteArray(5000, 'l');
}

// Each in the place of another, whose neighbours stay.
void tst_LibPpqRows::setValuesStandAlone()
{
    QFETCH(QByteArray, value);
    QList<Row> rows = numbers(5);
    play(OrdinaryAnswers(columns(2), rows));
    const ResultPtr page = run(9);
    for (int row = 0; row < rows.size(); ++row) {
        for (int column = 0; column < 2; ++column) {
            setValue(page, row, column, value);
            rows[row][column] = value;
            QCOMPARE(textsOf(page), textsOf(rows));
        }
    }
}

void tst_LibPpqRows::setRowsFollowTheOthers()
{
    for (const int count : {0, 1, 127, 128, 129, 300}) {
        const QList<Row> rows = numbers(600);
        play(OrdinaryAnswers(columns(2), rows.mid(0, count)));
        const ResultPtr page = run(1000);
        QCOMPARE(PQntuples(page.get()), count);
        for (int row = count; row < rows.size(); ++row) {
            setValue(page, row, 0, rows.at(row).at(0));
            setValue(page, row, 1, rows.at(row).at(1));
        }
        QCOMPARE(textsOf(page), textsOf(rows));
    }
}

void tst_LibPpqRows::allocationsLeaveTheRowsAlone()
{
    play(OrdinaryAnswers(columns(2), numbers(50)));
    const ResultPtr page = run(100);
    const size_t size = PQresultMemorySize(page.get());
    constexpr size_t Bytes = 100;
    constexpr size_t Times = 100;
    for (size_t i = 0; i < Times; ++i) {
        void *memory = PQresultAlloc(page.get(), Bytes);
        QVERIFY(memory);
        std::fill_n(static_cast<char *>(memory), Bytes, '\xff');
    }
    QCOMPARE(textsOf(page), textsOf(numbers(50)));
    QVERIFY(PQresultMemorySize(page.get()) > size);
}

void tst_LibPpqRows::traceTellsEveryRow_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("at once") << MiB;
    QTest::newRow("in pieces") << 7;
}

void tst_LibPpqRows::traceTellsEveryRow()
{
    QFETCH(int, size);
    const QList<Row> rows = numbers(200);
    const QByteArray page = dataRow({"", QByteArray("a\0'\n", 4)}) + messagesOf(rows);
    const QByteArray end = commandComplete("SELECT 201") + readyForQuery('I');
    const auto send = [size](const QByteArray &bytes) {
        return [size, bytes](PeerLink &link) { link.sendInPieces(bytes, size); };
    };
    play(Run, send(described(2) + page + end));
    const QList<QByteArray> libpqs = traced(conn.get(), [this] {
        const ResultPtr result(PQexecPrepared(conn.get(), "st", 0, nullptr, nullptr, nullptr, 1));
    });
    QCOMPARE(rowLinesIn(libpqs), rows.size() + 1);
    connectAnew();
    QCOMPARE(traced(conn.get(), [this] { run(); }), libpqs);

    play(Fetch, send(page + end));
    const ResultPtr first = run();
    const QList<QByteArray> later = traced(conn.get(), [this, &first] { fetch(first); });
    QCOMPARE(later, libpqs.mid(2));
}

// Asks for single rows, and fetches so many results or, below zero, all and their end.
void tst_LibPpqRows::leaveSingleRows(const QByteArray &sql, int fetched)
{
    QCOMPARE(PQsendQuery(conn.get(), sql.constData()), 1);
    QCOMPARE(PQsetSingleRowMode(conn.get()), 1);
    while (fetched != 0 && ResultPtr(PQgetResult(conn.get()))) {
        --fetched;
    }
}

void tst_LibPpqRows::singleRowModeIsDiscarded_data()
{
    QTest::addColumn<QByteArray>("sql");
    QTest::addColumn<int>("fetched");
    QTest::newRow("nothing fetched") << QByteArray("SELECT many") << 0;
    QTest::newRow("a row fetched") << QByteArray("SELECT many") << 1;
    QTest::newRow("all rows fetched") << QByteArray("SELECT many") << 3;
    QTest::newRow("all results fetched") << QByteArray("SELECT many") << 4;
    QTest::newRow("end fetched") << QByteArray("SELECT many") << -1;
    QTest::newRow("nothing fetched, then an error") << QByteArray("SELECT failing") << 0;
    QTest::newRow("a row fetched, then an error") << QByteArray("SELECT failing") << 1;
    QTest::newRow("error fetched") << QByteArray("SELECT failing") << 2;
    QTest::newRow("end behind an error fetched") << QByteArray("SELECT failing") << -1;
}

void tst_LibPpqRows::singleRowModeIsDiscarded()
{
    QFETCH(QByteArray, sql);
    QFETCH(int, fetched);
    const QByteArray one = rowDescription(columns(2, 0)) + dataRow({"single", ""});
    OrdinaryAnswers answers(columns(2), numbers(5));
    answers.answer("SELECT many", one + dataRow({"single", "2"}) + dataRow({"single", "3"}) +
                                      commandComplete("SELECT 3"));
    answers.answer("SELECT failing", one + errorResponse("XX000", "no"));
    play(answers);

    leaveSingleRows(sql, fetched);
    const ResultPtr first = run();
    QVERIFY(isSuspended(first));
    QCOMPARE(textsOf(first), textsOf(numbers(2)));

    leaveSingleRows(sql, fetched);
    const ResultPtr second = fetch(first);
    QVERIFY(isSuspended(second));
    QCOMPARE(textsOf(second), textsOf(numbers(4).mid(2)));

    leaveSingleRows(sql, fetched);
    QCOMPARE(PPQclose(conn.get(), "po", nullptr), 1);
    QCOMPARE(textsOf(run()), textsOf(numbers(2)));

    const ResultPtr whole(PQexec(conn.get(), "SELECT many"));
    QCOMPARE(PQresultStatus(whole.get()), PGRES_TUPLES_OK);
    QCOMPARE(PQntuples(whole.get()), 3);
}

void tst_LibPpqRows::singleRowModeBehindACloseIsDiscarded_data()
{
    QTest::addColumn<QByteArray>("portal");
    QTest::addColumn<QByteArray>("statement");
    QTest::newRow("portal") << QByteArray("po") << QByteArray();
    QTest::newRow("statement") << QByteArray() << QByteArray("st");
    QTest::newRow("both") << QByteArray("po") << QByteArray("st");
}

// Whether libpq takes a close for a query whose rows can be had singly, or not.
void tst_LibPpqRows::singleRowModeBehindACloseIsDiscarded()
{
    QFETCH(QByteArray, portal);
    QFETCH(QByteArray, statement);
    play(OrdinaryAnswers(columns(2), numbers(5)));
    const auto closeAndAsk = [&] {
        QCOMPARE(PPQclose(conn.get(), portal.isNull() ? nullptr : portal.constData(),
                          statement.isNull() ? nullptr : statement.constData()),
                 1);
        PQsetSingleRowMode(conn.get());
    };
    closeAndAsk();
    const ResultPtr first = run();
    QVERIFY(isSuspended(first));
    QCOMPARE(textsOf(first), textsOf(numbers(2)));
    closeAndAsk();
    QCOMPARE(textsOf(fetch(first)), textsOf(numbers(4).mid(2)));
}

QTEST_GUILESS_MAIN(tst_LibPpqRows)
#include "tst_libppqrows.moc"
