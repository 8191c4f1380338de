// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Why a server, or libpq, refuses a connection.
#include "connectioncause.h"

#include <QtCore/QTextCodec>

namespace {

struct KnownCause
{
    const char *words; // the words that tell it; "&" joins such as must all be there
    const char *id;
    const char *meaning;
    const char *remedy;
};

// The first that fits counts. libpq tells of every attempt, at each address, with TLS and without it:
// the one that came furthest knows the cause. SQLSTATE would tell the server's reasons in any language,
// but the driver does not hand it on.
const KnownCause causes[] = {
    {"connection info string", "options", "the connect options cannot be read",
     "write them as name=value;name=value"},
    {"invalid connection option", "options", "libpq does not know a connect option",
     "see libpq's list of connection parameters"},
    {"unsupported startup parameter", "pooler", "PgBouncer refuses a setting",
     "name it in PgBouncer's ignore_startup_parameters, or leave it out"},
    {"query_wait_timeout", "pooler", "PgBouncer has no connection to the server to give",
     "raise its pool_size: each open database takes two"},
    {"no more connections allowed", "places", "PgBouncer is full", "raise its max_client_conn"},
    {"server does not support SSL", "tls", "TLS is required, and the server does not offer it",
     "set ssl = on at the server, or say sslmode=prefer in --options"},
    {"certificate", "tls", "the certificates do not fit",
     "see to sslrootcert, sslcert and the server's name in --options"},
    {"no password supplied", "password", "the server wants a password",
     "give it by --password-stdin or PGPASSWORD"},
    {"password authentication failed", "password", "user or password is wrong",
     "correct --user or the password; letters outside ASCII do not arrive as they are"},
    {"Peer authentication failed", "password", "the server lets in the system's user alone",
     "give --host localhost and a password, or log in as the user of the same name"},
    {"не прошёл проверку подлинности", "password", "user or password is wrong",
     "correct --user or the password; letters outside ASCII do not arrive as they are"},
    // Refused with TLS, and perhaps without it in a second text: TLS is not what is missing.
    {"pg_hba.conf&SSL encryption", "access", "the server has no rule that lets this login in",
     "add a line to its pg_hba.conf and reload it"},
    {"pg_hba.conf&SSL on", "access", "the server has no rule that lets this login in",
     "add a line to its pg_hba.conf and reload it"},
    {"pg_hba.conf&Шифрование SSL", "access", "the server has no rule that lets this login in",
     "add a line to its pg_hba.conf and reload it"},
    {"pg_hba.conf&no encryption", "tls", "the server lets this login in with TLS alone, if at all",
     "say sslmode=require in --options, or add a line to its pg_hba.conf"},
    {"pg_hba.conf&SSL off", "tls", "the server lets this login in with TLS alone, if at all",
     "say sslmode=require in --options, or add a line to its pg_hba.conf"},
    {"pg_hba.conf&без шифрования", "tls", "the server lets this login in with TLS alone, if at all",
     "say sslmode=require in --options, or add a line to its pg_hba.conf"},
    {"pg_hba.conf", "access", "the server has no rule that lets this login in",
     "add a line to its pg_hba.conf and reload it"},
    {"too many", "places", "the server has no place left", nullptr},
    {"connection slots are reserved", "places", "the server has no place left", nullptr},
    {"слишком много", "places", "the server has no place left", nullptr},
    {"слоты подключений зарезервированы", "places", "the server has no place left", nullptr},
    {"starting up", "starting", "the server is starting up", "wait, and try again"},
    {"система баз данных запускается", "starting", "the server is starting up",
     "wait, and try again"},
    {"shutting down", "stopping", "the server is shutting down", "start it again"},
    {"система баз данных останавливается", "stopping", "the server is shutting down",
     "start it again"},
    {"database \"&does not exist", "database", "there is no such database",
     "correct --database, or create it"},
    {"база данных \"&не существует", "database", "there is no such database",
     "correct --database, or create it"},
    {"role \"&does not exist", "role", "there is no such user",
     "correct --user, or create the role"},
    {"роль \"&не существует", "role", "there is no such user",
     "correct --user, or create the role"},
    {"not permitted to log in", "role", "this role may not log in", "ALTER ROLE ... LOGIN"},
    {"вход запрещён", "role", "this role may not log in", "ALTER ROLE ... LOGIN"},
    // No server has said why. Else these tell of a name's other addresses: localhost is ::1, too.
    {"could not translate host name", "host", "there is no host of this name", "correct --host"},
    {"No such file or directory", "socket", "no server listens on that socket",
     "start the server, or correct the folder of its socket (--host) and the port"},
    {"Connection refused", "refused", "no server listens there",
     "start the server; is the port right, and does listen_addresses have this address?"},
    {"No route to host", "network", "the network does not lead there",
     "correct --host, or the network"},
    {"Network is unreachable", "network", "the network does not lead there",
     "correct --host, or the network"},
    {"timeout expired", "timeout", "nobody answered in time",
     "look for a firewall, or correct host and port; connect_timeout in --options waits longer"},
    {"Connection timed out", "timeout", "nobody answered in time",
     "look for a firewall, or correct host and port"},
    {"SSL", "tls", "TLS fails", "see to sslmode and the certificates in --options"},
    {"server closed the connection unexpectedly", "closed", "what listens there hung up",
     "is it PostgreSQL? Its log says more"},
};

const char placesRemedy[] =
    "end connections, or raise max_connections, the role's or the database's "
    "CONNECTION LIMIT: each open database takes two";

bool hlpFits(const QString &text, const char *words)
{
    const QStringList parts = QString::fromUtf8(words).split(QLatin1Char('&'));
    for (const QString &part : parts) {
        if (!text.contains(part)) {
            return false;
        }
    }
    return true;
}

} // namespace

ConnectionCause connectionCause(const QString &text)
{
    for (const KnownCause &cause : causes) {
        if (hlpFits(text, cause.words)) {
            return {QString::fromLatin1(cause.id), QString::fromLatin1(cause.meaning),
                    QString::fromLatin1(cause.remedy ? cause.remedy : placesRemedy)};
        }
    }
    return {QStringLiteral("other"), QStringLiteral("no connection"),
            QStringLiteral("see what the text says; the server's log has more")};
}

QString asItWasMeant(const QString &text)
{
    const QTextCodec *assumed = QTextCodec::codecForName("CP1251");
    const QTextCodec *meant = QTextCodec::codecForName("UTF-8");
    if (!assumed || !meant || !assumed->canEncode(text)) {
        return text;
    }
    const QByteArray bytes = assumed->fromUnicode(text);
    QTextCodec::ConverterState state;
    const QString read = meant->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0 ? read : text;
}
