// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What docs/connecting.md says of the ways to a server beyond open()'s arguments: the environment, the
// password file, and the encoding of the database.
#include "access/dorvy3codec_p.h"
#include "tests/driver/behaviour.h"
#include "tests/support/documenttable.h"
#include "tests/support/libpqowners.h"
#include "tests/support/sqlmacros.h"

#include <QtCore/QTemporaryDir>
#include <QtCore/QTextCodec>

namespace {

constexpr char Dash[] = "—";

// A variable of the environment, as long as the object lives.
class Variable
{
public:
    Variable(const char *variableName, const QString &value)
        : name(variableName)
    {
        qputenv(name, value.toUtf8());
    }
    ~Variable() { qunsetenv(name); }

private:
    Q_DISABLE_COPY(Variable)

    const char *name;
};

// A letter beyond ASCII that the codec has.
QString letterOf(const QTextCodec *codec)
{
    for (const QChar letter : QStringLiteral("éжąαאبกğ\u1e03漢한")) {
        if (codec->canEncode(letter)) {
            return letter;
        }
    }
    return QString();
}

} // namespace

class tst_Connecting : public QObject, private Behaviour
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(start(), qPrintable(cluster.why()));
        cluster.run("CREATE ROLE keeper LOGIN PASSWORD 'it''s: \\ \"' IN ROLE passworded");
    }
    void init() { QVERIFY(openAnew()); }
    void cleanup() { closeForGood(); }

    void environmentFillsWhatIsLeftOut();
    void argumentsBeatTheEnvironment();
    void serviceFile();
    void passwordWithQuotes();
    void passwordFile_data();
    void passwordFile();
    void clientEncodingOfTheEnvironmentGarbles();
    void portZeroIsRefused();
    void otherArgumentsAtOpen();

    void everyEncodingOfTheServer();
    void codecOfTheEncoding_data() { encodings(); }
    void codecOfTheEncoding();
    void lettersGoBothWays_data() { encodings(); }
    void lettersGoBothWays();

private:
    static void encodings();
    // The database without arguments, which is open when all that is left out is filled in.
    bool openWithout(const QString &options = QString())
    {
        db.close();
        for (const auto set : {&QSqlDatabase::setHostName, &QSqlDatabase::setDatabaseName,
                               &QSqlDatabase::setUserName, &QSqlDatabase::setPassword}) {
            (db.*set)(QString());
        }
        db.setPort(-1);
        db.setConnectOptions(options);
        return db.open();
    }
    QString answer(const QString &sql)
    {
        QSqlQuery query(db);
        return query.exec(sql) && query.next() ? query.value(0).toString()
                                               : query.lastError().driverText();
    }
};

void tst_Connecting::environmentFillsWhatIsLeftOut()
{
    const Variable host("PGHOST", cluster.socketDir());
    const Variable port("PGPORT", QString::number(cluster.port()));
    const Variable user("PGUSER", cluster.user());
    const Variable database("PGDATABASE", "template1");
    const Variable name("PGAPPNAME", "of the environment");
    QVERIFY_SQL(db, openWithout());
    QCOMPARE(answer("SELECT current_database()"), QString("template1"));
    QCOMPARE(answer("SELECT current_setting('application_name')"), QString("of the environment"));
}

void tst_Connecting::argumentsBeatTheEnvironment()
{
    const Variable host("PGHOST", "/nowhere");
    const Variable port("PGPORT", "1");
    const Variable user("PGUSER", "nobody");
    const Variable database("PGDATABASE", "template1");
    const Variable name("PGAPPNAME", "of the environment");
    db.close();
    db.setConnectOptions("application_name=mine");
    QVERIFY_SQL(db, db.open());
    QCOMPARE(answer("SELECT current_database()"), QString("postgres"));
    QCOMPARE(answer("SELECT current_setting('application_name')"), QString("mine"));
}

void tst_Connecting::serviceFile()
{
    const QTemporaryDir folder;
    QFile file(folder.filePath("services"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QString("[shop]\nhost=%1\nport=%2\nuser=dorvy\ndbname=template1\n")
                   .arg(cluster.socketDir())
                   .arg(cluster.port())
                   .toUtf8());
    file.close();
    const Variable services("PGSERVICEFILE", file.fileName());
    QVERIFY_SQL(db, openWithout("service=shop"));
    QCOMPARE(answer("SELECT current_database()"), QString("template1"));
}

void tst_Connecting::passwordWithQuotes()
{
    db.close();
    db.setUserName("keeper");
    db.setPassword("it's: \\ \"");
    QVERIFY_SQL(db, db.open());
    QCOMPARE(answer("SELECT current_user"), QString("keeper")); // the second connection has it too
    db.close();
    db.setPassword(QString());
    db.setConnectOptions("password='it\\'s: \\\\ \"'"); // in the options one quotes it oneself
    QVERIFY_SQL(db, db.open());
}

void tst_Connecting::passwordFile_data()
{
    QTest::addColumn<bool>("shared");
    QTest::addColumn<bool>("opens");
    QTest::newRow("for its owner alone") << false << true;
    QTest::newRow("that others may read") << true << false;
}

void tst_Connecting::passwordFile()
{
    QFETCH(bool, shared);
    const QTemporaryDir folder;
    QFile file(folder.filePath("pgpass"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(
        "*:*:*:keeper:it's\\: \\\\ \"\n"); // where a colon and a backslash have one before them
    file.close();
    QVERIFY(file.setPermissions(shared ? QFile::ReadOwner | QFile::ReadGroup : QFile::ReadOwner));
    db.close();
    db.setUserName("keeper");
    const Variable passwords("PGPASSFILE", file.fileName());
    QTEST(db.open(), "opens");
}

void tst_Connecting::clientEncodingOfTheEnvironmentGarbles()
{
    const Variable encoding("PGCLIENTENCODING", "LATIN1");
    db.close();
    QVERIFY(db.open());
    QCOMPARE(answer("SELECT length('é')::text"), QString("2"));
    db.close();
    db.setConnectOptions("client_encoding=UTF8"); // the database's own
    QVERIFY(db.open());
    QCOMPARE(answer("SELECT length('é')::text"), QString("1"));
}

void tst_Connecting::portZeroIsRefused()
{
    db.close();
    db.setPort(0);
    QVERIFY(!db.open());
    COMPARE_TEXTS(db.lastError(), "invalid port number: \"0\"\n",
                  "Ошибка при установке соединения с СУБД");
}

void tst_Connecting::otherArgumentsAtOpen()
{
    QVERIFY(!db.open("stranger", "word"));
    QVERIFY(!db.isOpen()); // the connection of before is gone
    QCOMPARE(db.userName(), QString("stranger"));
    QVERIFY(db.open(cluster.user(), "word"));
    QCOMPARE(db.userName(), cluster.user());
}

void tst_Connecting::encodings()
{
    QTest::addColumn<QString>("encoding");
    QTest::addColumn<QString>("codec");
    for (const QStringList &cells : documentTable("connecting.md", "Encodings")) {
        for (const QString &encoding : quotedIn(cells.at(0))) {
            const QStringList codecs = quotedIn(cells.at(1));
            QTest::newRow(qPrintable(encoding))
                << encoding << (codecs.isEmpty() ? Dash : codecs.first());
        }
    }
}

// The page's rows are all that a database can have.
void tst_Connecting::everyEncodingOfTheServer()
{
    QStringList told;
    for (const QStringList &cells : documentTable("connecting.md", "Encodings")) {
        told += quotedIn(cells.at(0));
    }
    // Below 35 are those of servers; the rest are clients' alone.
    QStringList known = cluster.run("SELECT pg_encoding_to_char(e) FROM generate_series(0, 34) e");
    told.sort();
    known.sort();
    QCOMPARE(told, known);
}

void tst_Connecting::codecOfTheEncoding()
{
    QFETCH(QString, encoding);
    const QString name = encoding.toLower();
    cluster.createDatabase(name, encoding);
    const RawConnectionPtr connection(PQconnectdb(cluster.conninfo(name).constData()));
    QTextCodec *fallback = QTextCodec::codecForName("UTF-16"); // no server's
    const Dorvy3Codecs codecs = hlpCodecs(connection.get(), fallback);
    QCOMPARE(codecs.client, codecs.server);
    QTEST(codecs.server == fallback ? QString(Dash) : QString(codecs.server->name()), "codec");
}

void tst_Connecting::lettersGoBothWays()
{
    QFETCH(QString, encoding);
    QFETCH(QString, codec);
    if (codec == Dash) {
        return; // where they go the way of the locale
    }
    db.close();
    db.setDatabaseName(encoding.toLower());
    QVERIFY_SQL(db, db.open());
    const QString letter = letterOf(QTextCodec::codecForName(codec.toLatin1()));
    QVERIFY(!letter.isEmpty());
    QSqlQuery query(db);
    QVERIFY_SQL(query, query.prepare(QString("SELECT ?::text, '%2'::text, "
                                             "convert_from('\\x%1', 'UTF8')")
                                         .arg(QString(letter.toUtf8().toHex()), letter)));
    query.addBindValue(letter);
    QVERIFY_SQL(query, query.exec() && query.next());
    for (const int column : {0, 1, 2}) {
        QCOMPARE(query.value(column).toString(), letter);
    }
}

QTEST_GUILESS_MAIN(tst_Connecting)
#include "tst_connecting.moc"
