// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The identifier formatter: what it does not take for quoted already comes out as quoted identifiers
// with full stops between them, which name what was given.
#include "driver/dorvydriver.h"

#include "access/dorvy3.h"
#include "fuzz/fuzzinput.h"

#include <QtCore/QStringList>

namespace {

const QChar Quote = QLatin1Char('"');

bool isTakenAsQuoted(const QString &name)
{
    return name.isEmpty() || name.startsWith(Quote) || name.endsWith(Quote);
}

// Reads one quoted identifier as the server does: two quotes in it are one.
QString takeQuoted(const QString &sql, int &at)
{
    QString name;
    require(at < sql.size() && sql.at(at) == Quote, "an identifier begins with a quote");
    for (++at; at < sql.size(); ++at) {
        const bool isQuote = sql.at(at) == Quote;
        if (isQuote && (++at == sql.size() || sql.at(at) != Quote)) {
            return name;
        }
        name += sql.at(at);
    }
    require(false, "an identifier ends with a quote");
    return name;
}

QStringList takeNames(const QString &sql)
{
    int at = 0;
    QStringList names(takeQuoted(sql, at));
    while (at < sql.size()) {
        require(sql.at(at) == QLatin1Char('.'), "identifiers have a full stop between them");
        names += takeQuoted(sql, ++at);
    }
    return names;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const DorvyDriver driver(QSharedPointer<Dorvy3Transacted>::create());
    const QString name =
        QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const QString escaped = driver.escapeIdentifier(name, QSqlDriver::FieldName);
    if (isTakenAsQuoted(name)) {
        require(escaped == name, "what is quoted stays as it is");
        return 0;
    }
    require(takeNames(escaped) == name.split(QLatin1Char('.')), "the names are those given");
    return 0;
}
