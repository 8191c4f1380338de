// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The connection string, read back by libpq: every value comes back byte for byte, whatever quotes,
// backslashes, blanks and equals signs it has, and no other key appears.
#include "fuzz/fuzzinput.h"
#include "tests/support/testaccess.h"

#include <QtCore/QMap>

#include <memory>

namespace {

using Options = std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)>;
using Values = QMap<QByteArray, QByteArray>;

struct Arguments
{
    QString host;
    QString db;
    QString user;
    QString password;
    int port;
    bool hasOptions;
};

Arguments takeArguments(FuzzedDataProvider &input)
{
    Arguments arguments;
    arguments.port = input.ConsumeIntegralInRange(-1, 65535);
    arguments.hasOptions = input.ConsumeBool();
    arguments.host = takeText(input);
    arguments.db = takeText(input);
    arguments.user = takeText(input);
    arguments.password = takeText(input);
    return arguments;
}

// What libpq is handed.
QByteArray compose(const Arguments &arguments)
{
    static const Dorvy3Database database(QSharedPointer<Dorvy3Transacted>::create());
    const QString options =
        arguments.hasOptions ? QStringLiteral("sslmode=disable;keepalives=0") : QString();
    return Dorvy3TestAccess::composedString(database, arguments.db, arguments.user,
                                            arguments.password, arguments.host, arguments.port,
                                            options)
        .toLatin1();
}

// Characters outside Latin-1 reach libpq as "?"; an empty value is left out.
Values expected(const Arguments &arguments)
{
    Values values;
    values["host"] = arguments.host.toLatin1();
    values["dbname"] = arguments.db.toLatin1();
    values["user"] = arguments.user.toLatin1();
    values["password"] = arguments.password.toLatin1();
    values["port"] = arguments.port == -1 ? QByteArray() : QByteArray::number(arguments.port);
    values["sslmode"] = arguments.hasOptions ? "disable" : "";
    values["keepalives"] = arguments.hasOptions ? "0" : "";
    return values;
}

bool hasZero(const Arguments &arguments)
{
    return (arguments.host + arguments.db + arguments.user + arguments.password)
        .contains(QChar(QChar::Null));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const Arguments arguments = takeArguments(input);
    const Options options(PQconninfoParse(compose(arguments).constData(), nullptr),
                          &PQconninfoFree);
    if (hasZero(arguments)) { // it ends the string inside the quotes
        require(!options, "a value that is cut off does not connect");
        return 0;
    }
    require(options != nullptr, "libpq can read the string");
    const Values values = expected(arguments);
    for (const PQconninfoOption *option = options.get(); option->keyword; ++option) {
        require(values.value(option->keyword) == option->val, option->keyword);
    }
    return 0;
}
