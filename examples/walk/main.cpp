// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A walk through PostgreSQL in plain Qt SQL: the machine's own package index goes into a table and
// comes back row by row. Everything here is what any Qt application can write.
#include "packageindex.h"
#include "report.h"

#include "engine/valuetext.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QUuid>
#include <QtSql/QSqlDatabase>
#include <QtSql/QSqlError>
#include <QtSql/QSqlField>
#include <QtSql/QSqlQuery>
#include <QtSql/QSqlRecord>

namespace {

constexpr int PageRows = 128; // what the driver holds of a result at any time

// Every type that a column can have. The last five come from the server alone.
constexpr char createTable[] = "CREATE TABLE packages ("
                               " id int4 PRIMARY KEY,"
                               " package varchar(200) NOT NULL,"
                               " version text NOT NULL,"
                               " section name,"
                               " architecture char(8),"
                               " description text,"
                               " digest bytea,"
                               " installed_kib int8,"
                               " essential bool NOT NULL,"
                               " density float4,"
                               " archive_mib float8,"
                               " listed date,"
                               " listed_at time,"
                               " imported timestamp,"
                               " imported_zone timestamptz,"
                               " name_length int2,"
                               " installed_mib numeric(12,2),"
                               " token uuid,"
                               " card jsonb,"
                               " label varchar(240))";

// What the server makes of the other columns.
constexpr char computeColumns[] =
    "UPDATE packages SET"
    " name_length = length(package),"
    " installed_mib = installed_kib / 1024.0,"
    " token = md5(package || version)::uuid,"
    " card = ('{\"name\": \"' || package || '\"}')::jsonb,"
    " label ="
    "  CASE WHEN essential THEN 'Обязательный пакет: ' ELSE 'Пакет: ' END || package";

// The walk's state: one connection, one report, the packages that went in.
struct Walk
{
    QSqlDatabase database;
    Report report;
    QVector<Package> packages;
};

// Runs one text and reports a failure.
bool run(Walk &walk, const QString &sql)
{
    QSqlQuery query(walk.database);
    if (query.exec(sql)) {
        return true;
    }
    walk.report.check(false, sql);
    walk.report.error(query.lastError());
    return false;
}

QVariant firstValue(Walk &walk, const QString &sql)
{
    QSqlQuery query(walk.database);
    if (query.exec(sql) && query.next()) {
        return query.value(0);
    }
    walk.report.check(false, sql);
    walk.report.error(query.lastError());
    return QVariant();
}

void open(Walk &walk, const QCommandLineParser &arguments)
{
    walk.report.chapter(QStringLiteral("Open"));
    walk.database = QSqlDatabase::addDatabase(QStringLiteral("DORVY"));
    walk.database.setHostName(arguments.value(QStringLiteral("host")));
    walk.database.setPort(arguments.value(QStringLiteral("port")).toInt());
    walk.database.setDatabaseName(arguments.value(QStringLiteral("database")));
    walk.database.setUserName(arguments.value(QStringLiteral("user")));
    walk.database.setConnectOptions(QStringLiteral("application_name=walk;connect_timeout=10"));
    if (!walk.report.check(walk.database.open(),
                           QStringLiteral("a connection by addDatabase(\"DORVY\")"))) {
        walk.report.error(walk.database.lastError());
        return;
    }
    walk.report.line(firstValue(walk, QStringLiteral("SELECT version()")).toString());
}

// A failed statement spoils the transaction; the rollback takes all of it back.
void showTransaction(Walk &walk)
{
    walk.report.chapter(QStringLiteral("A transaction with a failed statement, rolled back"));
    walk.report.check(walk.database.transaction(), QStringLiteral("transaction()"));
    run(walk, QStringLiteral("CREATE TABLE doomed (id int4 PRIMARY KEY)"));
    run(walk, QStringLiteral("INSERT INTO doomed VALUES (1)"));
    QSqlQuery query(walk.database);
    walk.report.check(!query.exec(QStringLiteral("INSERT INTO doomed VALUES (1)")),
                      QStringLiteral("a second row with the same key is refused:"));
    walk.report.error(query.lastError());
    walk.report.check(!walk.database.commit(), QStringLiteral("commit() is refused as well:"));
    walk.report.error(walk.database.lastError());
    walk.report.check(walk.database.rollback(), QStringLiteral("rollback()"));
    const QVariant left =
        firstValue(walk, QStringLiteral("SELECT count(*) FROM pg_class WHERE relname = 'doomed'"));
    walk.report.check(left == QVariant(0), QStringLiteral("nothing of it is left"));
}

QVariant textOrNull(const QString &text)
{
    return text.isEmpty() ? QVariant(QVariant::String) : QVariant(text);
}

QVariant bytesOrNull(const QByteArray &bytes)
{
    return bytes.isEmpty() ? QVariant(QVariant::ByteArray) : QVariant(bytes);
}

QVariant numberOrNull(qint64 number)
{
    return number < 0 ? QVariant(QVariant::LongLong) : QVariant(number);
}

// A parameter of a type that the driver does not send (bool, char, float4) is cast from one it
// does.
bool insertPackages(Walk &walk)
{
    QSqlQuery query(walk.database);
    if (!query.prepare(QStringLiteral(
            "INSERT INTO packages (id, package, version, section, architecture, description,"
            " digest, installed_kib, essential)"
            " VALUES (?, ?, ?, ?, CAST(? AS text), ?, ?, ?, CAST(? AS int4) = 1)"))) {
        walk.report.error(query.lastError());
        return false;
    }
    int id = 0;
    for (const Package &package : walk.packages) {
        query.addBindValue(++id);
        query.addBindValue(package.name);
        query.addBindValue(package.version);
        query.addBindValue(textOrNull(package.section));
        query.addBindValue(package.architecture);
        query.addBindValue(textOrNull(package.description));
        query.addBindValue(bytesOrNull(package.descriptionMd5));
        query.addBindValue(numberOrNull(package.installedKib));
        query.addBindValue(package.essential ? 1 : 0);
        if (!query.exec()) {
            walk.report.error(query.lastError());
            return false;
        }
    }
    return true;
}

// The same with named values: the rest of the columns, for one package in ten.
int updatePackages(Walk &walk)
{
    QSqlQuery query(walk.database);
    query.prepare(QStringLiteral(
        "UPDATE packages SET archive_mib = :mib, density = CAST(:density AS float8),"
        " listed = :date, listed_at = :time, imported = :moment, imported_zone = :moment"
        " WHERE id = :id"));
    const QDateTime moment(QDate(2024, 2, 29), QTime(12, 34, 56, 789));
    int updated = 0;
    for (int id = 10; id <= walk.packages.size(); id += 10) {
        const Package &package = walk.packages.at(id - 1);
        const double mib = static_cast<double>(package.archiveBytes) / (1024.0 * 1024.0);
        query.bindValue(QStringLiteral(":id"), id);
        query.bindValue(QStringLiteral(":mib"), mib);
        query.bindValue(QStringLiteral(":density"),
                        mib * 1024.0 / static_cast<double>(qMax<qint64>(1, package.installedKib)));
        query.bindValue(QStringLiteral(":date"), moment.date().addDays(-id));
        query.bindValue(QStringLiteral(":time"), moment.time());
        query.bindValue(QStringLiteral(":moment"), moment.addSecs(id));
        if (!query.exec()) {
            walk.report.error(query.lastError());
            break;
        }
        updated += query.numRowsAffected();
    }
    return updated;
}

void fill(Walk &walk)
{
    walk.report.chapter(QStringLiteral("Prepared statements, in one transaction"));
    QElapsedTimer timer;
    timer.start();
    walk.report.check(walk.database.transaction(), QStringLiteral("transaction()"));
    run(walk, QString::fromUtf8(createTable));
    const int count = walk.packages.size();
    walk.report.check(insertPackages(walk),
                      QStringLiteral("%1 packages inserted with positional values").arg(count));
    const int updated = updatePackages(walk);
    walk.report.check(updated == count / 10,
                      QStringLiteral("%1 of them updated with named values").arg(updated));
    walk.report.line(QStringLiteral("%1 statements a second")
                         .arg((count + updated) * 1000LL / qMax<qint64>(1, timer.elapsed())));
    const bool computed = run(walk, QString::fromUtf8(computeColumns));
    walk.report.check(computed, QStringLiteral("five more columns computed by the server"));
    walk.report.check(walk.database.commit(), QStringLiteral("commit()"));
}

// What one pass over all rows saw.
struct Tally
{
    int rows = 0;
    int pages = 0;
    int shortPages = 0;
    int nulls = 0;
    int russian = 0;
    int essential = 0;
    int wrongTokens = 0;
    qint64 installedKib = 0;
    qint64 mostKib = 0; // resident memory, at its peak
};

// The position counts within the page that is held: it is 0 again where a new one begins.
void countRow(const QSqlQuery &query, int columns, Tally &tally)
{
    ++tally.rows;
    if (query.at() == 0) {
        ++tally.pages;
        tally.shortPages += query.size() < PageRows ? 1 : 0;
        tally.mostKib = qMax(tally.mostKib, residentKib());
    }
    for (int column = 0; column < columns; ++column) {
        tally.nulls += query.isNull(column) ? 1 : 0;
    }
    tally.installedKib += query.value(QStringLiteral("installed_kib")).toLongLong();
    tally.essential += query.value(QStringLiteral("essential")).toBool() ? 1 : 0;
    tally.russian +=
        query.value(QStringLiteral("label")).toString().contains(QStringLiteral("акет: ")) ? 1 : 0;
    tally.wrongTokens += query.value(QStringLiteral("token")).toUuid().isNull() ? 1 : 0;
}

void compare(Walk &walk, const Tally &tally)
{
    const auto check = [&walk](qint64 seen, const QString &sql, const QString &what) {
        const qint64 asked = firstValue(walk, sql).toLongLong();
        walk.report.check(seen == asked,
                          QStringLiteral("%1 %2, as the server counts them").arg(seen).arg(what));
    };
    check(tally.rows, QStringLiteral("SELECT count(*) FROM packages"), QStringLiteral("rows"));
    check(tally.essential, QStringLiteral("SELECT count(*) FROM packages WHERE essential"),
          QStringLiteral("essential packages"));
    check(tally.installedKib, QStringLiteral("SELECT sum(installed_kib)::int8 FROM packages"),
          QStringLiteral("KiB installed"));
    check(
        tally.nulls,
        QStringLiteral("SELECT sum(num_nulls(section, description, digest, installed_kib, density,"
                       " archive_mib, listed, listed_at, imported, imported_zone,"
                       " installed_mib)) FROM packages"),
        QStringLiteral("NULLs"));
}

// Runs the query and counts every row of it; false if it cannot be run.
bool tallyRows(Walk &walk, Tally &tally)
{
    QSqlQuery query(walk.database);
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT * FROM packages ORDER BY id"))) {
        walk.report.error(query.lastError());
        return false;
    }
    const int columns = query.record().count();
    while (query.next()) {
        countRow(query, columns, tally);
    }
    return walk.report.check(
        !query.lastError().isValid(),
        QStringLiteral("%1 columns, to the end without an error").arg(columns));
}

void checkTally(Walk &walk, const Tally &tally)
{
    const int count = walk.packages.size();
    walk.report.check(tally.rows == count, QStringLiteral("%1 rows").arg(tally.rows));
    walk.report.check(tally.pages == (count + PageRows - 1) / PageRows &&
                          tally.shortPages == (count % PageRows ? 1 : 0),
                      QStringLiteral("in %1 pages of %2 rows, one of them held at a time")
                          .arg(tally.pages)
                          .arg(PageRows));
    walk.report.check(tally.russian == count, QStringLiteral("a Russian label in every row"));
    walk.report.check(tally.wrongTokens == 0, QStringLiteral("a UUID in every row"));
}

void walkRows(Walk &walk)
{
    walk.report.chapter(QStringLiteral("A walk through all rows"));
    Tally tally;
    const qint64 before = residentKib();
    QElapsedTimer timer;
    timer.start();
    if (!walk.report.check(tallyRows(walk, tally), QStringLiteral("SELECT * FROM packages"))) {
        return;
    }
    const qint64 msec = qMax<qint64>(1, timer.elapsed());
    checkTally(walk, tally);
    walk.report.line(QStringLiteral("%1 rows a second; memory %2 KiB before, %3 KiB at the most")
                         .arg(tally.rows * 1000LL / msec)
                         .arg(before)
                         .arg(tally.mostKib));
    compare(walk, tally);
}

// Every type that a column can have, in the first row that has them all.
void showTypes(Walk &walk)
{
    walk.report.chapter(QStringLiteral("Every type, in one row"));
    QSqlQuery query(walk.database);
    query.prepare(QStringLiteral("SELECT * FROM packages WHERE id = ?"));
    query.addBindValue(10);
    if (!walk.report.check(query.exec() && query.next(), QStringLiteral("package 10"))) {
        walk.report.error(query.lastError());
        return;
    }
    const QSqlRecord record = query.record();
    QVector<QStringList> rows;
    for (int column = 0; column < record.count(); ++column) {
        const QString text = columnText(query, column, record.field(column));
        rows += QStringList{record.fieldName(column),
                            QString::fromLatin1(query.value(column).typeName()), text.left(60)};
    }
    walk.report.table({QStringLiteral("column"), QStringLiteral("as"), QStringLiteral("value")},
                      rows);
    walk.report.check(record.count() == 20, QStringLiteral("20 columns"));
}

void ask(Walk &walk)
{
    walk.report.chapter(QStringLiteral("Questions, answered by SQL"));
    QSqlQuery query(walk.database);
    query.prepare(QStringLiteral(
        "SELECT section, count(*), sum(installed_mib)::float8, max(length(description))"
        " FROM packages WHERE section IS NOT NULL AND installed_kib > :least"
        " GROUP BY section ORDER BY count(*) DESC, section LIMIT 5"));
    query.bindValue(QStringLiteral(":least"), 1000);
    walk.report.check(query.exec(),
                      QStringLiteral("the five sections with most packages over 1000 KiB"));
    QVector<QStringList> rows;
    while (query.next()) {
        rows += QStringList{query.value(0).toString(), query.value(1).toString(),
                            QString::number(query.value(2).toDouble(), 'f', 0),
                            query.value(3).toString()};
    }
    walk.report.table({QStringLiteral("section"), QStringLiteral("packages"), QStringLiteral("MiB"),
                       QStringLiteral("longest description")},
                      rows);
    walk.report.check(rows.size() == 5, QStringLiteral("five answers"));
}

void showErrors(Walk &walk)
{
    walk.report.chapter(QStringLiteral("Errors"));
    QSqlQuery query(walk.database);
    walk.report.check(!query.exec(QStringLiteral("SELECT nothing FROM nowhere")),
                      QStringLiteral("an unknown table:"));
    walk.report.error(query.lastError());
    walk.report.check(!query.exec(QStringLiteral("SELECT 1 / (id - 1) FROM packages")),
                      QStringLiteral("a division by zero in the first row:"));
    walk.report.error(query.lastError());
}

void close(Walk &walk)
{
    walk.report.chapter(QStringLiteral("Close"));
    run(walk, QStringLiteral("DROP TABLE packages"));
    walk.database.close();
    walk.report.check(!walk.database.isOpen(), QStringLiteral("closed"));
    QSqlQuery query(walk.database);
    walk.report.check(!walk.database.transaction(),
                      QStringLiteral("a transaction now is refused:"));
    walk.report.error(walk.database.lastError());
}

void addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const char *name, const char *text, const char *value) {
        parser.addOption(QCommandLineOption(QString::fromLatin1(name), QString::fromLatin1(text),
                                            QString::fromLatin1(name), QString::fromLatin1(value)));
    };
    parser.setApplicationDescription(
        QStringLiteral("Walks through a PostgreSQL database with the DORVY driver."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("index"),
                                 QStringLiteral("what \"apt-cache dumpavail\" printed"));
    add("host", "server's host, or the folder of its socket", "localhost");
    add("port", "server's port", "5432");
    add("database", "database; the table \"packages\" is made in it and dropped", "postgres");
    add("user", "user", "postgres");
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("walk"));
    QCoreApplication::setApplicationVersion(QStringLiteral(DORVY_VERSION));
    QCommandLineParser arguments;
    addOptions(arguments);
    arguments.process(application);
    QFile index(arguments.positionalArguments().value(0));
    Walk walk;
    if (!walk.report.check(index.open(QIODevice::ReadOnly), QStringLiteral("the package index"))) {
        return 1;
    }
    walk.packages = readPackageIndex(index);
    walk.report.check(walk.packages.size() > 1000,
                      QStringLiteral("%1 packages in it").arg(walk.packages.size()));
    open(walk, arguments);
    for (const auto chapter :
         {showTransaction, fill, walkRows, showTypes, ask, showErrors, close}) {
        if (walk.report.isGood()) {
            chapter(walk);
        }
    }
    walk.report.chapter(QStringLiteral("Verdict"));
    walk.report.line(walk.report.isGood() ? QStringLiteral("every count is right")
                                          : QStringLiteral("something is wrong, see the crosses"));
    return walk.report.isGood() ? 0 : 1;
}
