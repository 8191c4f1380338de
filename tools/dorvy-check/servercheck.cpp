// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// What a server that lets us in is like.
#include "servercheck.h"

#include "access/dorvy3encoding_p.h"
#include "arguments.h"
#include "connectioncause.h"
#include "jsontext.h"
#include "serversession.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QTextCodec>
#include <QtCore/QVector>
#include <QtSql/QSqlQuery>

#include <algorithm>

namespace {

constexpr int OldestMajor = 10;
constexpr int LatestMajor = 18;
constexpr int MajorFactor = 10000; // 150003 is 15.3
constexpr int Exchanges = 11;
constexpr double SlowMsec = 50;
constexpr double NsecPerMsec = 1e6;
constexpr int FewPlaces = 10;

QString hlpFacts()
{
    return QStringLiteral(
        "SELECT row_to_json(t)::text FROM (SELECT current_setting('server_version') AS version, "
        "current_setting('server_version_num')::int AS number, "
        "current_setting('server_encoding') AS server_encoding, "
        "current_setting('client_encoding') AS client_encoding, "
        "current_setting('DateStyle') AS date_style, "
        "current_setting('max_connections')::int AS places, "
        "current_setting('superuser_reserved_connections')::int + "
        "coalesce(current_setting('reserved_connections', true)::int, 0) AS reserved, "
        "(SELECT sum(numbackends) FROM pg_stat_database)::int AS used, "
        "(SELECT rolconnlimit FROM pg_roles WHERE rolname = session_user) AS role_limit, "
        "(SELECT datconnlimit FROM pg_database WHERE datname = current_database()) "
        "AS database_limit, "
        "current_setting('port')::int AS port, pg_is_in_recovery() AS is_standby) t");
}

int hlpNumber(const QJsonObject &facts, const char *name)
{
    return facts.value(QLatin1String(name)).toInt(-1);
}

bool hlpCheckSecond(ServerSession &session, const TakeFinding &report)
{
    const QString id = QStringLiteral("second-connection");
    if (!session.read(QStringLiteral("SELECT 'read'::text")).isNull()) {
        report(ok(id, QStringLiteral("the server lets it in: reads work")));
        return true;
    }
    const QString text = maskPasswords(asItWasMeant(session.error().driverText()));
    const ConnectionCause cause = connectionCause(text);
    report(failed(id,
                  QStringLiteral("commands work and reads fail: %1: %2").arg(cause.meaning, text),
                  cause.remedy, {{QStringLiteral("cause"), cause.id}}));
    return false;
}

void hlpCheckVersion(const QJsonObject &facts, const TakeFinding &report)
{
    const QString id = QStringLiteral("server");
    const QString what = QStringLiteral("PostgreSQL ") + jsonText(facts, "version") +
                         (facts.value(QStringLiteral("is_standby")).toBool()
                              ? QStringLiteral(", a standby: it takes no writes")
                              : QString());
    const int major = hlpNumber(facts, "number") / MajorFactor;
    if (major >= OldestMajor && major <= LatestMajor) {
        report(ok(id, what, facts));
        return;
    }
    report(warning(
        id, what,
        QStringLiteral("the driver is tested with %1 to %2").arg(OldestMajor).arg(LatestMajor),
        facts));
}

// The codec that the driver takes for an encoding, by the driver's own rule.
QString hlpCodecName(const QString &encoding)
{
    const QTextCodec *codec = hlpFindCodec(encoding.toLatin1().constData());
    return codec ? QString::fromLatin1(codec->name()) : QString();
}

void hlpCheckEncoding(const QString &what, const QString &encoding, const TakeFinding &report)
{
    const QString codec = hlpCodecName(encoding);
    const QJsonObject data{{QStringLiteral("encoding"), encoding},
                           {QStringLiteral("codec"), codec}};
    if (!codec.isEmpty()) {
        report(ok(QStringLiteral("encoding"),
                  QStringLiteral("%1 %2, codec %3").arg(what, encoding, codec), data));
        return;
    }
    report(warning(
        QStringLiteral("encoding"),
        QStringLiteral("%1 %2 has no codec in Qt; texts are taken for the locale's %3")
            .arg(what, encoding, QString::fromLatin1(QTextCodec::codecForLocale()->name())),
        QStringLiteral("use a database in UTF8, or a locale in the encoding of its texts"), data));
}

// Texts go out in the database's encoding, while the server takes them for client_encoding.
void hlpCheckEncodings(const QJsonObject &facts, const TakeFinding &report)
{
    const QString server = jsonText(facts, "server_encoding");
    const QString client = jsonText(facts, "client_encoding");
    hlpCheckEncoding(QStringLiteral("server_encoding"), server, report);
    hlpCheckEncoding(QStringLiteral("client_encoding"), client, report);
    if (server != client) {
        report(failed(QStringLiteral("encoding"),
                      QStringLiteral("client_encoding is %1, but texts are sent in %2: they arrive "
                                     "garbled")
                          .arg(client, server),
                      QStringLiteral("take client_encoding off the options, the role and the "
                                     "environment (PGCLIENTENCODING)")));
    }
}

void hlpCheckDateStyle(const QJsonObject &facts, const TakeFinding &report)
{
    const QString id = QStringLiteral("datestyle");
    const QString style = jsonText(facts, "date_style");
    report(style.startsWith(QLatin1String("ISO"))
               ? ok(id, style)
               : failed(id, QStringLiteral("%1, although the driver sets ISO").arg(style),
                        QStringLiteral("dates in text form are not read; let SET DATESTYLE pass")));
}

// Limits of -1 are none.
void hlpCheckPlaces(const QJsonObject &facts, const TakeFinding &report)
{
    const int places = hlpNumber(facts, "places");
    const int free = places - hlpNumber(facts, "reserved") - hlpNumber(facts, "used");
    QString what =
        QStringLiteral("%1 of max_connections %2 are free").arg(qMax(free, 0)).arg(places);
    for (const char *limit : {"role_limit", "database_limit"}) {
        if (hlpNumber(facts, limit) >= 0) {
            what += QStringLiteral(", %1 %2")
                        .arg(QString::fromLatin1(limit).replace(QLatin1Char('_'), QLatin1Char(' ')))
                        .arg(hlpNumber(facts, limit));
        }
    }
    const QString id = QStringLiteral("places");
    const QJsonObject data{{QStringLiteral("max"), places}, {QStringLiteral("free"), free}};
    report(free >= FewPlaces ? ok(id, what, data)
                             : warning(id, what,
                                       QStringLiteral("each open database takes two; raise "
                                                      "max_connections, or end connections"),
                                       data));
}

void hlpCheckBetween(const QJsonObject &facts, const Arguments &arguments,
                     const TakeFinding &report)
{
    const int port = hlpNumber(facts, "port");
    if (arguments.port == -1 || arguments.port == port) {
        return;
    }
    report(warning(QStringLiteral("between"),
                   QStringLiteral("the server listens on port %1, not %2: a pooler or a forwarded "
                                  "port is in between")
                       .arg(port)
                       .arg(arguments.port),
                   QStringLiteral("PgBouncer: pool_mode = session, and a pool_size of two for each "
                                  "open database")));
}

void hlpCheckTime(ServerSession &session, const TakeFinding &report)
{
    QSqlQuery query(session.database());
    QVector<qint64> times;
    bool isRun = query.prepare(QStringLiteral("SELECT 1::int4")) && query.exec();
    QElapsedTimer timer;
    for (int i = 0; i < Exchanges && isRun; ++i) {
        timer.start();
        isRun = query.exec();
        times.append(timer.nsecsElapsed());
    }
    if (!isRun) {
        return; // told with the second connection
    }
    std::sort(times.begin(), times.end());
    const double msec = static_cast<double>(times.at(Exchanges / 2)) / NsecPerMsec;
    const QString id = QStringLiteral("exchange");
    const QString what = QStringLiteral("%1 ms for a query of one row, median of %2")
                             .arg(msec, 0, 'f', 3)
                             .arg(Exchanges);
    const QJsonObject data{{QStringLiteral("msec"), msec}};
    report(msec < SlowMsec ? ok(id, what, data)
                           : warning(id, what,
                                     QStringLiteral("each page of 128 rows takes as long: bring "
                                                    "program and server closer together"),
                                     data));
}

} // namespace

void checkServer(ServerSession &session, const Arguments &arguments, const TakeFinding &report)
{
    const bool isReading = hlpCheckSecond(session, report);
    const QJsonObject facts =
        (isReading ? session.readJson(hlpFacts()) : session.tellJson(hlpFacts())).object();
    if (facts.isEmpty()) {
        report(warning(QStringLiteral("server"),
                       QStringLiteral("it does not tell its settings: ") +
                           session.error().driverText(),
                       QStringLiteral("is it PostgreSQL?")));
        return;
    }
    hlpCheckVersion(facts, report);
    hlpCheckEncodings(facts, report);
    hlpCheckDateStyle(facts, report);
    hlpCheckPlaces(facts, report);
    hlpCheckBetween(facts, arguments, report);
    if (isReading) {
        hlpCheckTime(session, report);
    }
}
