// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Arguments: what the command line asks for.
#ifndef ARGUMENTS_H
#define ARGUMENTS_H

#include <QtCore/QStringList>

struct Arguments
{
    QString host;
    int port = -1; // none given
    QString database;
    QString user;
    QString password;
    QString options; // as QSqlDatabase::setConnectOptions takes them
    QString table;
    QString query;
    bool isJson = false;

    /*! Whether anything says that there is a server to ask. */
    bool hasConnection() const;

    /*! The connection in one line, passwords masked. */
    QString target() const;
};

/*!
    Takes the program's command line. Wrong use, --help and --version end the program: with status 2,
    0 and 0.
*/
Arguments takeArguments();

/*!
    Passwords in connect options or in a connection address, and in a text that quotes these, replaced by
    three asterisks.
*/
QString maskPasswords(const QString &text);

#endif // ARGUMENTS_H
