// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// ConnectionDialog: asks where to connect, until a connection is made.
#ifndef CONNECTIONDIALOG_H
#define CONNECTIONDIALOG_H

#include "examples/viewer/connectionsettings.h"

#include <QtSql/QSqlError>
#include <QtWidgets/QDialog>

#include <functional>

class ErrorBar;
class QFormLayout;
class QLineEdit;
class QSpinBox;

/*!
    Asks for the arguments of a connection. OK tries to connect; where that fails the dialog shows the
    error and stays, with what was typed.
*/
class ConnectionDialog : public QDialog
{
    Q_OBJECT

public:
    /*! Makes a connection; the error is invalid where it was made. */
    using Attempt = std::function<QSqlError(const ConnectionSettings &)>;

    ConnectionDialog(const ConnectionSettings &settings, Attempt attempt,
                     QWidget *parent = nullptr);

    /*! Shows the error of an attempt made before. */
    void showError(const QSqlError &error);

    void accept() override;

private:
    QLineEdit *addField(QFormLayout *form, const QString &name, const QString &label,
                        const QString &text);
    void addPort(QFormLayout *form, int number);
    ConnectionSettings settings() const;

    Attempt attempt;
    ErrorBar *errorBar;
    QLineEdit *driver;
    QLineEdit *host;
    QSpinBox *port;
    QLineEdit *database;
    QLineEdit *user;
    QLineEdit *password;
    QLineEdit *options;
};

#endif // CONNECTIONDIALOG_H
